// The bytes of a link as its log may show them.
#pragma once
#include "ztypes.h"

namespace zat {

// The bytes in hexadecimal, a blank before each. In a complete message (between the port's start and end
// sequence with a good LRC, or alone) the card data are shown as "**" but for the last four digits of the
// card number. What is no such message (noise, a damaged or cut one) shows no digit at all, since nobody can
// tell what it carries.
tString LinkLogBytes(const tString& oBytes, const tString& oStart, const tString& oEnd);

} // namespace zat
