// Card numbers in texts that should hold none: logs, configuration, whatever is about to leave the shop.
#pragma once
#include <string_view>
#include <vector>

#include "ztypes.h"

namespace zat::tool {

struct tCard {
  size_t lOfs, lSize; // the number, and the rest of the track behind it
};

// What FindCard (cardtext.h) finds, and in messages of the log ("... ReadBlock: ...") the digits that stand where such a
// message has its card data; its other fixed fields (amount, merchant, date, reference) are what their names say.
// In the order of their places.
std::vector<tCard> FindCards(std::string_view oText);

// Replaces the digits of every card number by '*', but for the number's last four. Nothing changes its place, and
// nothing is found in the result. The number of cards.
size_t MaskCards(tString& oText);

} // namespace zat::tool
