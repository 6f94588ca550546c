// The faults that simulator.cfg asks for: one key a fault, each read once when the module starts.
//
// Most faults name a block of the answer by its number: the greeting is block 0, the blocks after it (or all the
// blocks on a framed link, which has no greeting) count from 1 in each exchange.
#pragma once
#include "ztypes.h"

namespace zat {

enum tFaultId : int {
  eFIpause,      // pause before a block
  eFInoGreeting, // no greeting at all
  eFIsilent,     // not a byte from a block on
  eFIcut,        // end in the middle of a block
  eFIdie,        // end before a block, by a signal or by itself
  eFIexitCode,   // the process's exit code
  eFIunknownId,  // ten "?" in place of the terminal id
  eFIduplicate,  // a block sent twice
  eFInoise,      // bytes that belong to no block before a block
  eFIsize,       // a block with a given amount of data
  eFIprintLines, // number of print lines of a slip
  eFIcard,       // how long the holder takes to present the card
  eFInak,        // link only: refuse frames that came whole
  eFIbadCheck,   // link only: frames with a wrong check byte
  eFIlog,        // not a fault: write the module's own lines to the shared log
  eFInum
};

struct tFault {
  long lAt = -1; // the first number of the value: mostly a block; -1: the fault is off
  long lHow = 0; // the second number, or the key's default for it
  bool On() const { return lAt >= 0; }
};

struct tFaults {
  tFault mo[eFInum];

  // The fault's entry when it is due at this block, else null.
  const tFault* Due(tFaultId oId, long lBlock) const;
  const tFault& operator[](tFaultId oId) const { return mo[oId]; }
};

// Reads the keys of the sections "FAULTS" and then "FAULTS-<terminal id without leading zeros>", whose keys win.
// A missing file means no faults. A value that is not of its key's form leaves the fault off and adds a line to
// *poComplaints when that is not null: a module that a till started has nobody to complain to.
tFaults ReadFaults(const tString& oFile, const tString& oTId, tString* poComplaints = nullptr);

// Every key with its form and meaning, for a person, in English, one line a key.
tString FaultsText();

// The file to read: simulator.cfg beside the configuration that the till gave (a directory, or a file in it) when
// there is one, else in the installation root. oRoot ends with '/'.
tString FaultsFile(const tString& oRoot, const tString& oConfig);

} // namespace zat
