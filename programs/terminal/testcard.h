// The card that a simulated holder presents.
#pragma once

namespace zat {

// Its track 2: card number, "=", expiry date YYMM, service code.
constexpr char mcTestCard[] = "4111111111111111=3012101";

} // namespace zat
