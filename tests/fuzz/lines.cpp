// Command lines: of the launcher, of the module, of links and of the cash desk.
#include <cstring>

#include "EFTPPlace.h"
#include "command.h"
#include "fuzz.h"
#include "mmisc.h"
#include "upipes.h"

FUZZ_TARGET(lines) {
  const int room = static_cast<int>(in.Below(12)) + 1;
  const std::string line = in.Rest().c_str();
  std::vector<char*> words(static_cast<size_t>(room));
  const int count = ParsCdmLine(line.c_str(), words.data(), room);
  FUZZ_HOLDS(count >= 0 && count < room && !words[static_cast<size_t>(count)]);
  for (int i = 0; i < count; ++i) FUZZ_HOLDS(words[static_cast<size_t>(i)][0] != 0);
  std::vector<char*> bare = words; // removebe moves the pointers, and only the old ones can be freed
  removebe(count, bare.data());
  FreeArgV(words.data(), room);

  tCmdTwoHalf halves;
  MakeCmdTwoHalf(line.c_str(), &halves);
  FUZZ_HOLDS(halves.pcFirst && halves.pcSecond >= line.c_str() &&
             halves.pcSecond <= line.c_str() + line.size());
  FreeCmdTwoHalf(&halves);

  UnnamedPipes pipes;
  FUZZ_HOLDS(pipes.Import(line.c_str()) == pipes.IsReady() || pipes.miHLoc[1] < 0);
  zat::tLinkPlace place;
  tString why;
  FUZZ_HOLDS(zat::LinkPlaceFromText(line, place, why) == why.empty());
}

// One argument a line, as zat_till is called.
FUZZ_TARGET(till) {
  std::vector<std::string> words = {"zat_till"};
  const std::string text = in.Rest();
  for (size_t at = 0; at <= text.size() && words.size() < 12;) {
    const size_t end = std::min(text.find('\n', at), text.size());
    words.push_back(text.substr(at, end - at).c_str());
    at = end + 1;
  }
  for (const std::string& word : words)
    if (word == "-" || word.ends_with("=-")) return; // a track from the standard input
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  const auto parsed = zat::till::ParseCommandLine(static_cast<int>(argv.size()), argv.data(), "UTF-8");
  FUZZ_HOLDS(parsed.oOrder.has_value() || !parsed.oText.empty());
  if (!parsed.oOrder) return;
  FUZZ_HOLDS((parsed.oOrder->procAsk == nullptr) !=
             (parsed.oOrder->procWork == nullptr)); // one way to carry it out
  FUZZ_HOLDS(parsed.oOrder->fRaw || parsed.oOrder->oRrn.size() <= 12);
}
