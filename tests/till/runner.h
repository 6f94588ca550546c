// Runs zat_till as a user does: with a library that plays a script, or in an installation with the real one.
#pragma once
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
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
  // Starts the program with words that blanks separate; with a terminal its standard output and error are that.
  void Start(const std::string& line, bool terminal = false, const std::string& input = "") {
    oScratch.Put("input", input);
    std::istringstream in(ZAT_INSTALLATION "/BIN/zat_till " + line + (oLib.empty() ? "" : " --lib ") + oLib);
    std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    iChild = terminal ? forkpty(&iTerminal, nullptr, nullptr, nullptr) : fork();
    if (iChild != 0) return;
    if (!terminal) {
      Redirect(0, "input", O_RDONLY);
      Redirect(1, "out", O_WRONLY | O_CREAT);
      Redirect(2, "err", O_WRONLY | O_CREAT);
    }
    if (int ends[2]; fReaderGone && pipe2(ends, O_CLOEXEC) == 0) {
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
    const bool terminal = iTerminal >= 0;
    if (terminal) {
      while (ReadTerminal()) {}
      close(std::exchange(iTerminal, -1));
    }
    int status = 0;
    waitpid(iChild, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            terminal ? oShown : oScratch.Get("out"), terminal ? "" : oScratch.Get("err")};
  }

  Ran Run(const std::string& line, const std::string& input = "") {
    std::filesystem::remove(oScratch / "out");
    std::filesystem::remove(oScratch / "err");
    Start(line, false, input);
    return Finish();
  }

  // Waits until a text stands in the record of the library, or in another file of the run.
  bool WaitFor(const std::string& text, const char* file = "record") const {
    for (int i = 0; i < 10000; ++i, usleep(1000))
      if (oScratch.Get(file).find(text) != std::string::npos) return true;
    return false;
  }

  // Waits until the terminal shows a text.
  bool WaitForScreen(const std::string& text) {
    while (oShown.find(text) == oShown.npos)
      if (!ReadTerminal()) return false;
    return true;
  }

  void Type(char key) const { ASSERT_EQ(write(iTerminal, &key, 1), 1); }
  void Interrupt() const { kill(iChild, SIGINT); }
  void Kill() const { kill(iChild, SIGKILL); }
  std::string Record() const { return oScratch.Get("record"); }

  Scratch oScratch;
  std::string oLib;
  bool fReaderGone = false; // the standard output is a pipe that nobody reads
  std::map<std::string, std::string> oEnvironment = {{"LC_ALL", "C.UTF-8"}, {"TERM", "xterm"}};

private:
  void Redirect(int to, const char* name, int flags) {
    int fd = open((oScratch / name).c_str(), flags, 0600);
    dup2(fd, to);
    close(fd);
  }

  bool ReadTerminal() {
    char piece[512];
    ssize_t got = read(iTerminal, piece, sizeof piece);
    if (got > 0) oShown.append(piece, static_cast<size_t>(got));
    return got > 0;
  }

  pid_t iChild = -1;
  int iTerminal = -1;
  std::string oShown; // by the terminal so far
};

class ScriptedTill : public Till {
public:
  explicit ScriptedTill(const std::string& script) {
    oEnvironment["FAKE_SCRIPT"] = oScratch.Put("script", script);
    oEnvironment["FAKE_RECORD"] = oScratch / "record";
    oLib = oScratch / "BIN/libfake_ms.so";
    std::filesystem::create_directory(oScratch / "BIN");
    std::filesystem::copy(ZAT_FAKES "/libfake_ms.so", oLib);
    // The module that the till looks for beside the library; never started here.
    oScratch.Put("BIN/zat_mm", "");
    std::filesystem::permissions(oScratch / "BIN/zat_mm", std::filesystem::perms::owner_all);
  }
};

// An installation of its own, with the object and the simulated terminal.
class InstalledTill : public Till {
public:
  InstalledTill() {
    oLib = oScratch / "BIN/libzat_ms.so";
    std::filesystem::create_directory(oScratch / "BIN");
    for (const char* file : {"BIN/libzat_ms.so", "BIN/zat_mm"})
      std::filesystem::copy(std::string(ZAT_INSTALLATION "/") + file, oScratch / file);
    oScratch.Put("micromgl.cfg", "[TILL]\nBREAK=1\n");
  }
};

// A terminal that is reached over TCP, without the library; its first two lines are its process and its place.
class LinkedTerminal {
public:
  explicit LinkedTerminal(const InstalledTill& till) {
    std::string command = "echo $$; exec " + (till.oScratch / "BIN/zat_mm") + " --listen 127.0.0.1:0";
    poOut = popen(command.c_str(), "r");
    char line[128] = "";
    iProcess = atoi(fgets(line, sizeof line, poOut));
    oPlace = fgets(line, sizeof line, poOut);
    oPlace = " --link tcp:127.0.0.1:" + std::to_string(atoi(oPlace.substr(oPlace.rfind(':') + 1).c_str()));
  }
  ~LinkedTerminal() {
    kill(iProcess, SIGTERM);
    pclose(poOut);
  }

  std::string oPlace; // as an option of the till

private:
  FILE* poOut;
  int iProcess;
};
