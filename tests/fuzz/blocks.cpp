// The module's side of the pipe, written by somebody hostile: blocks and half blocks through eftp_do, between polls,
// requests and breaks of a till.
#include <cerrno>
#include <cstring>
#include <memory>

#include "fuzz.h"
#include "quiet.h"
#include "uni_misc.h"
#include "zat_deft.h"

namespace {

constexpr size_t kAnswer = 2048, kHeader = 14;

// A session whose module is a process that has already ended: it has written what it had to, and nobody waits for more.
struct Till {
  MicroSMan man{nullptr};
  std::string written; // everything that came down the pipe

  explicit Till(unsigned settings) {
    man.fCanBreak = settings & 1;
    man.fOldRet = settings & 2;
    man.lCP = settings & 4 ? 866 : 1251;
    man.oWIdLst = settings & 8 ? eEFTPwidFinDay : eEFTPwidSale;
    if (settings & 16) man.oSts = eEFTSbad;
    man.oId = "0000000123";
    Start();
  }
  ~Till() { DoAuthE(&man.oMSGD); }

  void Start() {
    man.oMSGD.pvExHandle = SysCallBegin("");
    fuzz::Weather(1, EMFILE);
    FUZZ_HOLDS(!man.oUP.Open() && !man.oUP.IsReady());
    FUZZ_HOLDS(man.oMSGD.pvExHandle && man.oUP.Open());
  }

  void Write(const std::string& bytes) {
    if (write(man.oUP.miHExt[1], bytes.data(), bytes.size()) > 0) written += bytes;
  }
  void Block(const std::string& data) {
    Write(std::string{0x17, static_cast<char>(data.size()), static_cast<char>(data.size() >> 8)} + data +
          '\x17');
  }

  // More than is announced, and no end where it should be.
  void Unended(const std::string& data) {
    const size_t told = data.size() / 2;
    Write(std::string{0x17, static_cast<char>(told), static_cast<char>(told >> 8)} + data);
  }

  // A buffer just as long as the header of the request in it says, like that of a till.
  std::unique_ptr<char[]> Request(std::string bytes) {
    bytes.resize(std::max(bytes.size(), kHeader), '0');
    const size_t data = EFTPParsDLen(reinterpret_cast<const unsigned char*>(bytes.data()) + 12, 2, nullptr);
    auto buffer = std::make_unique<char[]>(kHeader + data);
    bytes.copy(buffer.get(), std::min(bytes.size(), kHeader + data));
    return buffer;
  }

  void Call(char* request, bool answer, bool wantsBreak) {
    auto buffer = std::make_unique<char[]>(kAnswer);
    const FUN_IDLE idle = [](void* asked) { return *static_cast<bool*>(asked) ? 1 : 0; };
    const int result = eftp_do(&man, request, answer ? buffer.get() : nullptr, idle, &wantsBreak);
    FUZZ_HOLDS(man.fOldRet || result == 0 || result == 9);
    // "Over, and nothing to complain of" is what a till takes for success: only the module's own end block means that.
    const bool over = man.fOldRet ? result == 9 : result == 9 && answer && buffer[0] == 0;
    FUZZ_HOLDS(!over || written.find("#0") != std::string::npos);
    FUZZ_HOLDS(man.iIn == 0);
  }
};

} // namespace

FUZZ_TARGET(blocks) {
  fuzz::Quiet();
  Till till(in.Byte());
  while (!in.Empty()) {
    switch (const unsigned step = in.Byte(); step % 8) {
    case 0: till.Block(in.Short()); break;
    case 1: step & 8 ? till.Unended(in.Text(in.Word())) : till.Block(in.Text(in.Word())); break;
    case 2: till.Write(in.Short()); break;
    case 7: // the host has closed what it did not know
      if (step & 32) till.man.oUP.Close();
      till.Call(nullptr, true, false);
      break;
    case 3: till.Call(till.Request(in.Short()).get(), true, false); break;
    case 4: till.Call(till.Request("10" + till.man.oId + "0C000000001000").get(), step & 8, false); break;
    case 5: fuzz::Weather(static_cast<int>(step / 64), step & 8 ? EAGAIN : EINTR); [[fallthrough]];
    default: till.Call(nullptr, true, step & 16); break;
    }
    fuzz::Weather(0, 0);
    if (!till.man.oMSGD.pvExHandle) till.Start(); // the end block was read: the next exchange
  }
}
