// A till's end of the pipes and the module behind it, for tests: starts zat_mm from an installation of its own.
#pragma once
#include "EFTPWork.h"
#include "prtclock.h"
#include "scratch.h"
#include "uni_misc.h"
#include "upipes.h"
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// An installation with the module alone in it: BIN/zat_mm is a link to the built one.
struct Site : Scratch {
  explicit Site(const std::string& faults = "") {
    Put("simulator.cfg", "[FAULTS]\n" + faults);
    std::filesystem::create_directory(*this / "BIN");
    std::filesystem::create_symlink(ZAT_INSTALLATION "/BIN/zat_mm", *this / "BIN/zat_mm");
  }
};

// One started module. Everything waits on blocks with a limit; a limit that runs out shows as an empty block.
class Module {
public:
  explicit Module(const Site& at, const std::string& terminal = "0000001234", const std::string& config = "-")
      : id(terminal) {
    pipes.Open();
    pipes.SetPeerCheck(&Gone, this);
    const std::string program = at / "BIN/zat_mm", ends = pipes.Export(), path = '"' + config + '"';
    child = fork();
    if (child != 0) return;
    execl(program.c_str(), program.c_str(), ends.c_str(), path.c_str(), id.c_str(), nullptr);
    _exit(255);
  }
  ~Module() {
    if (child <= 0) return;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  // The next block, or an empty string when none comes in time or the module has ended.
  std::string Block(int ms = 20000) {
    char buffer[4096];
    for (bool last = false; ms >= 0 && !last; --ms) {
      last = Gone(this) && !pipes.WaitIn(0); // what it wrote before its end is still there
      if (int n = pipes.ReadBlock(buffer, sizeof buffer, UnnamedPipes::eBTv0cb); n > 0)
        return {buffer, buffer + n};
      if (!last) YieldMS(1);
    }
    return {};
  }

  void Send(const std::string& work, const std::string& data = "") {
    std::string message;
    EFTPMakeHeader(message, static_cast<tEFTPWorkId>(EFTPWId(work[0], work[1])), &id, &data);
    pipes.WriteBlock(message.data(), static_cast<int>(message.size()), UnnamedPipes::eBTver0);
  }

  // All blocks of the answer up to the end block, or up to one that does not come.
  std::vector<std::string> Rest(int ms = 20000) {
    std::vector<std::string> blocks;
    do blocks.push_back(Block(ms));
    while (!blocks.back().empty() && blocks.back()[0] != '#');
    return blocks;
  }

  // Greeting, request, whole answer.
  std::vector<std::string> Ask(const std::string& work, const std::string& data = "") {
    Block();
    Send(work, data);
    return Rest();
  }

  // How the module ended, as waitpid tells it; -1 when it has not within the limit.
  int Ended() {
    for (int ms = 20000; !Gone(this) && ms > 0; --ms) YieldMS(1);
    return status;
  }

  UnnamedPipes pipes;

private:
  static bool Gone(void* pv) {
    auto& self = *static_cast<Module*>(pv);
    if (self.child > 0 && waitpid(self.child, &self.status, WNOHANG) != 0) self.child = -1;
    return self.child <= 0;
  }

  pid_t child = -1;
  int status = -1;
  std::string id;
};

// The two characters of every block, as one text: "53 32 60 #0". Print lines in a row count once.
inline std::string Codes(const std::vector<std::string>& blocks) {
  std::string codes, last;
  for (const std::string& block : blocks) {
    const std::string code = block.empty() ? "nothing" : block.substr(0, 2);
    if (code == "32" && last == "32") continue;
    codes += (codes.empty() ? "" : " ") + code;
    last = code;
  }
  return codes;
}
