// A terminal module that does what a test wrote down for it, step by step: the file module.script in the root of the
// installation. One step a line:
//
//   block HEX     send a framed block with these data bytes
//   raw HEX       send these bytes as they are
//   read          wait for a request block; append its bytes in hexadecimal to module.got
//   args          append the command line to module.got
//   until FILE    wait until the file is there
//   exit N        end with this status; the end of the script ends with 0
//   kill N        end by this signal
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "upipes.h"

namespace {

std::filesystem::path root;
UnnamedPipes pipes;

std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return bytes;
}

void Note(const std::string& text) { std::ofstream(root / "module.got", std::ios::app) << text << "\n"; }

void ReadRequest() {
  char request[16384];
  int length = pipes.ReadBlock(request, sizeof request, UnnamedPipes::eBTver0);
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  for (int i = 0; i < length; ++i) {
    hex += kDigits[static_cast<unsigned char>(request[i]) >> 4];
    hex += kDigits[request[i] & 0xF];
  }
  Note(hex);
}

void Step(const std::string& verb, const std::string& rest) {
  std::string bytes = verb == "block" || verb == "raw" ? FromHex(rest) : "";
  if (verb == "block") pipes.WriteBlock(bytes.data(), static_cast<int>(bytes.size()), UnnamedPipes::eBTver0);
  if (verb == "raw") pipes.Write(bytes.data(), static_cast<int>(bytes.size()));
  if (verb == "read") ReadRequest();
  while (verb == "until" && !std::filesystem::exists(root / rest)) usleep(1000);
  if (verb == "exit") _exit(std::stoi(rest));
  if (verb == "kill") {
    signal(std::stoi(rest), SIG_DFL); // a sanitizer would catch it and end the module with a status instead
    raise(std::stoi(rest));
  }
}

} // namespace

int main(int argc, char** argv) {
  root = std::filesystem::path(argv[0]).parent_path().parent_path();
  if (argc > 1) pipes.Import(argv[1]);
  std::ifstream script(root / "module.script");
  for (std::string line; std::getline(script, line);) {
    size_t space = line.find(' ');
    std::string verb = line.substr(0, space);
    for (int i = 0; verb == "args" && i < argc; ++i) Note(argv[i]);
    Step(verb, space == std::string::npos ? "" : line.substr(space + 1));
  }
  return 0;
}
