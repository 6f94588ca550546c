// Runs zat_till as a user does, with the library that plays a script.
#pragma once
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "scratch.h"

struct Ran {
  int iExit = -1; // 128 + the signal when one ended it
  std::string oOut, oErr;
};

class Till {
public:
  explicit Till(const std::string& script) {
    oEnvironment = {{"FAKE_SCRIPT", oScratch.Put("script", script)},
                    {"FAKE_RECORD", oScratch / "record"},
                    {"LC_ALL", "C.UTF-8"},
                    {"TERM", "xterm"}};
    // The module that the till looks for beside the library; never started here.
    std::filesystem::copy(ZAT_FAKES "/libfake_ms.so", oScratch / "libfake_ms.so");
    oScratch.Put("zat_mm", "");
    std::filesystem::permissions(oScratch / "zat_mm", std::filesystem::perms::owner_all);
    oLib = oScratch / "libfake_ms.so";
  }

  // Starts the program; with a terminal its standard output and error are that.
  void Start(std::vector<std::string> words, bool terminal = false, const std::string& input = "") {
    oScratch.Put("input", input);
    words.insert(words.begin(), ZAT_INSTALLATION "/BIN/zat_till");
    if (!oLib.empty()) words.insert(words.end(), {"--lib", oLib});
    iChild = terminal ? forkpty(&iTerminal, nullptr, nullptr, nullptr) : fork();
    if (iChild != 0) return;
    if (!terminal) {
      Redirect(0, "input", O_RDONLY);
      Redirect(1, "out", O_WRONLY | O_CREAT | O_TRUNC);
      Redirect(2, "err", O_WRONLY | O_CREAT | O_TRUNC);
    }
    if (int ends[2]; fReaderGone && pipe(ends) == 0) {
      dup2(ends[1], 1);
      close(ends[0]);
    }
    for (const auto& [name, value] : oEnvironment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }

  Ran Finish() {
    Ran ran;
    bool terminal = iTerminal >= 0;
    if (terminal) ran.oOut = ReadTerminal();
    int status = 0;
    while (waitpid(iChild, &status, 0) < 0 && errno == EINTR) {}
    ran.iExit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (!terminal) ran.oOut = oScratch.Get("out"), ran.oErr = oScratch.Get("err");
    return ran;
  }

  Ran Run(const std::vector<std::string>& words, const std::string& input = "") {
    Start(words, false, input);
    return Finish();
  }

  // Waits until a text stands in the record of the library, or in another file of the run.
  bool WaitFor(const std::string& text, const char* file = "record") const {
    for (int i = 0; i < 10000; ++i, usleep(1000))
      if (oScratch.Get(file).find(text) != std::string::npos) return true;
    return false;
  }

  void Interrupt() const { kill(iChild, SIGINT); }
  std::string Record() const { return oScratch.Get("record"); }

  Scratch oScratch;
  std::string oLib;
  bool fReaderGone = false; // the standard output is a pipe that nobody reads
  std::map<std::string, std::string> oEnvironment;

private:
  void Redirect(int to, const char* name, int flags) {
    int fd = open((oScratch / name).c_str(), flags, 0600);
    dup2(fd, to);
    close(fd);
  }

  std::string ReadTerminal() {
    std::string all;
    char piece[512];
    for (ssize_t got; (got = read(iTerminal, piece, sizeof piece)) > 0;)
      all.append(piece, static_cast<size_t>(got));
    close(iTerminal);
    iTerminal = -1;
    return all;
  }

  pid_t iChild = -1;
  int iTerminal = -1;
};
