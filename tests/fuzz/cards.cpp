// Card data: what splits a track and what hides it.
#include "EFTPLinkLog.h"
#include "EFTPWork.h"
#include "cardtext.h"
#include "fuzz.h"
#include "logmask.h"
#include "util.h"

namespace {

bool Digit(char c) { return c >= '0' && c <= '9'; }

// The log's copy of a message.
std::string Shown(const std::string& message) {
  zat::WipedText copy(reinterpret_cast<const unsigned char*>(message.data()), message.size());
  zat::MaskForLog(copy);
  return copy.oText;
}

} // namespace

FUZZ_TARGET(tracks) {
  const std::string given = in.Rest();
  tString track = given, pan = "p", expiry = "e", code = "c", rest = "r";
  if (ShrinkTrack2(track) == 0) {
    FUZZ_HOLDS(std::count(track.begin(), track.end(), '=') == 1 && track.size() <= given.size());
    for (char c : track) FUZZ_HOLDS(c == '=' || Digit(c));
  } else {
    FUZZ_HOLDS(track == given);
  }
  const std::string whole = track;
  if (PortionTrack2opt(track, pan, expiry, code, rest) == 0)
    FUZZ_HOLDS(pan + "=" + expiry + code + rest ==
               whole.substr(0, pan.size() + 1 + expiry.size() + code.size() + rest.size()));
  tString again = given;
  FUZZ_HOLDS(PortionTrack2(again, &pan, &expiry, nullptr) != 0 || (!pan.empty() && expiry.size() == 4));

  tString shown = given;
  MaskPEX(shown, 4, '*');
  size_t left = 0;
  for (char c : shown) left += Digit(c);
  FUZZ_HOLDS(shown.size() == given.size() && left <= 4);
}

// In whatever message a track stands, the log shows no more of it than four digits; and nothing that the log shows has
// another length than what was sent.
FUZZ_TARGET(cards) {
  const std::string message = in.Rest(), shown = Shown(message);
  FUZZ_HOLDS(shown.size() == message.size());
  FUZZ_HOLDS(Shown(shown) == shown);
  tString text = message;
  zat::tCardPlace place;
  zat::HideCards(text, 0);
  FUZZ_HOLDS(text.size() == message.size() && !zat::FindCard(text, 0, place));
  for (size_t i = 0; i < shown.size(); ++i) FUZZ_HOLDS(shown[i] == message[i] || shown[i] == '*');
  FUZZ_HOLDS(zat::LinkLogBytes(message, "\x10\x02", "\x10\x03").size() == message.size() * 3);
  FUZZ_HOLDS(zat::LinkLogBytes(message, "", "").size() == message.size() * 3);
}
