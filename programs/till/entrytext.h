// Entries of the journal in words and as JSON.
#pragma once
#include <nlohmann/json_fwd.hpp>

#include "judge.h"

namespace zat::till {

// One line, or more where the width (in characters) does not suffice; lines end in '\n'.
tString LineOf(const client::Entry& entry, size_t width);

nlohmann::json JsonOf(const client::Entry& entry);

// What a person has to know before the next payment, one line without an end; "" when no outcome is unknown.
tString Warning(const client::Entries& unknown);

// Those whose outcome somebody has to find out.
client::Entries UnknownOf(const client::Entries& entries);

// Why a ruling is as it is, and the name of the ground in JSON.
tString Explain(client::Ground ground);
const char* NameOf(client::Ground ground);

} // namespace zat::till
