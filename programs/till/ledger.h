// The commands about the journal: showing it, asking the terminal for payments whose outcome nobody knows, and taking a
// person's word where the terminal cannot tell. Each gives the exit code.
#pragma once
#include "command.h"
#include "screen.h"

namespace zat::till {

// Entries whose outcome is unknown or that are running, then the others.
int ShowJournal(const Order& order, Screen& screen);

// Asks the terminals for every payment whose outcome is unknown, or those of one terminal, and closes what they know.
// Moves no money.
int Recover(const Order& order, Screen& screen);

// Closes one of them by what a person has found out.
int Settle(const Order& order, Screen& screen);

} // namespace zat::till
