// Card numbers in texts that should hold none: logs, configuration, whatever is about to leave the shop.
#pragma once
#include <string_view>
#include <vector>

#include "ztypes.h"

namespace zat::tool {

struct tCard {
  size_t lOfs, lSize; // the number, and the rest of the track behind it
};

// What counts as a card number:
//   13 to 19 digits with the right check digit, with first digits and a length that cards have, in one run or in the
//   groups in which cards print them (4 4 4 4, 4 6 5, 4 6 4), parted by single blanks or dashes;
//   13 to 19 digits before '=' or 'D' and a plausible expiry date, which is a track 2, whatever the check digit says;
//   the digits that stand where a message of the log ("... ReadBlock: ...") has its card data.
// What does not, although one in ten has the right check digit: fixed fields of a message (amount, merchant, date,
// reference), numbers that begin with 0 (filled fields), with 1 (clocks) or with 20 (dates), addresses after 0x, and
// runs of 20 digits or more.
// In the order of their places.
std::vector<tCard> FindCards(std::string_view oText);

// Replaces the digits of every card number by '*', but for the number's last four. Nothing changes its place, and
// nothing is found in the result. The number of cards.
size_t MaskCards(tString& oText);

} // namespace zat::tool
