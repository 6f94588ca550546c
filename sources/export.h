// What the shared object shows to the programs that load it. Everything else is hidden, so that a host's own
// function of the same name (Done, SendCmd) can neither replace ours nor be replaced by it.
#pragma once

#define ZAT_API __attribute__((visibility("default")))
