// An exchange as people and machines read it.
#pragma once
#include <nlohmann/json.hpp>

#include "exchanges.h"
#include "output.h"

namespace zat::tool {

constexpr int kGapSeconds =
    5; // a pause of so many seconds is shown: usually a person, or a line that is slow

// "2026-11-21 14:03:59", local time.
tString TimeText(time_t oWhen);

// What an event says in one line, without its time and kind.
tString EventText(const tEvent& oEvent);

tColour ColourOf(tExchangeResult oResult);

// The first line: when, which terminal, what, how it ended, how long it took.
tString HeadLine(const tExchange& oExchange, time_t oNow, const Output& oOut);

// The first line and, unless fShort, a line for each event.
void PrintExchange(const tExchange& oExchange, time_t oNow, bool fShort, Output& oOut);

nlohmann::ordered_json ExchangeJson(const tExchange& oExchange, time_t oNow);

} // namespace zat::tool
