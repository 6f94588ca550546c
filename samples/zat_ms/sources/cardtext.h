// Card numbers in texts that have no field for them: free text of a message, a log, a file about to leave the shop.
#pragma once
#include <cstddef>
#include <string_view>

#include "ztypes.h"

namespace zat {

constexpr size_t kShortestCard = 13, kLongestCard = 19; // digits of a card number

// A card number in a text, and how far goes what belongs to it: the rest of a track, an expiry date beside it.
struct tCardPlace {
  size_t lBegin, lEnd, lStop;
};

// What counts as a card number:
//   13 to 19 digits with the right check digit, with first digits and a length that cards have, in one run or in the
//   groups in which cards print them (4 4 4 4, 4 6 5, 4 6 4), parted by single blanks or dashes;
//   13 to 19 digits before '=' or 'D' and a plausible expiry date, which is a track 2, whatever the check digit says.
// What does not, although one in ten has the right check digit: numbers that begin with 0 (filled fields), with 1
// (clocks) or with 20 (dates), addresses after 0x, and runs of 20 digits or more.
// Finds the first one that begins at lFrom or later. False when there is none. Copies nothing.
bool FindCard(std::string_view oText, size_t lFrom, tCardPlace& oPlace);

// Replaces the digits of a card in the text by '*', but for the last four of the number. Nothing changes its place.
void HideCard(tString& oText, const tCardPlace& oPlace);

// Hides every card that begins at lFrom or later.
void HideCards(tString& oText, size_t lFrom);

} // namespace zat
