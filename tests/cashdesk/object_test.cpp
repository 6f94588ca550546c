// The shared object as a guest in somebody's process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <regex>
#include <set>
#include <string>

#include "till.h"

namespace {

std::string OutputOf(const std::string& command) {
  std::string text;
  FILE* stream = popen(command.c_str(), "r");
  std::array<char, 4096> part;
  for (size_t n; stream && (n = fread(part.data(), 1, part.size(), stream)) > 0;) text.append(part.data(), n);
  if (stream) pclose(stream);
  return text;
}

// A name more would let a host's function of the same name take the place of ours: nothing of the standard library,
// nothing of the support library, nothing but what the headers offer.
TEST(Object, ExportsItsInterfaceAndNothingElse) {
  std::string listing = OutputOf("nm -DC --defined-only " ZAT_INSTALLATION "/BIN/libzat_ms.so | cut -c20-");
  std::set<std::string> names;
  for (size_t at = 0, end; (end = listing.find('\n', at)) != std::string::npos; at = end + 1)
    names.insert(listing.substr(at, end - at));
  for (const char* name :
       {"eftp_create", "eftp_do", "eftp_destroy", "main", "SQNull", "abisTRamt", "Done(PortSEtx_tag*)"})
    EXPECT_EQ(names.count(name), 1u) << name;
  static const std::regex kOffered("eftp_(create|do|destroy)|main|mo(SEtx|EFTP)CmdDefs|(abis|poTwo)[A-Za-z0-"
                                   "9]+|SQNull|EFTP\\w+(\\[abi.*\\])?\\(.*|PortS\\w+\\(.*|"
                                   "(Get|Work|Send|Recv|Clear)Cmd\\(.*|(Secure|Send|Recv)Dat\\(.*|WorkAck\\(."
                                   "*|ParsCmd(Only|Cpy)\\(.*|SomeEot\\(.*|"
                                   "Done\\(.*|GetPairValue\\(.*|LinkPlaceFromText\\(.*|SSqueeze::.*|(vtable "
                                   "for |typeinfo (name )?for )?basic_squeeze.*|"
                                   "zat::(Link|Squeeze|Counter|Tag|MaskValue).*");
  for (const std::string& name : names) EXPECT_TRUE(std::regex_match(name, kOffered)) << name;
}

TEST(Object, IsUnloadedByDlclose) {
  Installation site(ZAT_SCRIPTED_MODULE);
  LoadedObject lib(site.Library());
  ASSERT_NE(lib.handle, nullptr);
  lib.destroy(lib.create(nullptr));
  lib.Unload();
  EXPECT_EQ(dlopen(site.Library().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// A till in plain C registers its cleaning up before it loads anything, so that runs after the object's destructors.
TEST(Object, AnExitHandlerMayEndTheSession) {
  static TestTill* till;
  till = nullptr;
  Scratch dir;
  pid_t host = fork();
  if (host == 0) {
    atexit([] {
      int result = till->Call();
      till->lib->destroy(till->session);
      till->session = nullptr;
      bool good = result == 9 && till->Answer().empty() && !till->Has("cid123.lck");
      delete till;
      _exit(good ? 0 : 1);
    });
    EXPECT_EQ(chdir((dir / "").c_str()), 0); // for the exception log
    till = new TestTill(kGreet + Block(Message("52")) + kEndOk);
    till->Call(Message("10", "000000000100"));
    exit(2);
  }
  int status = -1;
  waitpid(host, &status, 0);
  EXPECT_EQ(status, 0);
}

} // namespace
