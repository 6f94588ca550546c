// The program entry of the shared object: executed as a file it is the stand-alone launcher.
#include "export.h"
#include "micros.h"
#include "utilf.h"

// The loader that the kernel hands an executed file to. A shared object has none of its own, so it is named here.
static const char kInterpreter[] __attribute__((section(".interp"), used)) = ZAT_INTERPRETER;

ZAT_API int main(int argc, char** argv) {
  removebe(argc, argv);
  // "./libzat_ms.so" names no directory that the installation could be found from, the loaded object does.
  static tString self = GetModuleName();
  if (argc > 0) argv[0] = self.data();
  return MonoS(argc, argv, &oMSGD);
}
