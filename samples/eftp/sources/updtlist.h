// The lists of downloaded updates: which finished update files are worth installing, and which half-written ones
// are to be cleared away.
#pragma once
#include "fsysmpsc.h"
#include "ztypes.h"
#include <map>

typedef std::map<tString, tString> tStrStrMap;

struct tFListData {
  // The lines are null-terminated lists; entry i of one belongs to entry i of the other. All null at first.
  struct tIn {
    const char* const* ppccOrigLine = nullptr; // installed names: a file must compare greater than entry i
    const char* const* ppccMaskLine =
        nullptr;                              // name patterns: 0 a finished update, 1 one still being written
    const char* pccHi = nullptr;              // no file may compare greater than this; null: no bound
    const char* const* ppccDirList = nullptr; // directories to look into, bare names; null: none
  } oIn;
  struct tOut {
    tStrStrMap oSM; // finished updates: name to full path
    tStrStrMap
        oSMb; // half-written ones: mask of all files of that number to their directory, ending with '/'
  } oOut;
};

// Fills poFLD->oOut, cleared first, from the files of pccDirPath and of its directories that ppccDirList names; no
// deeper. pccHi becomes the input's bound. The walk's result: 0 when all was read, also for a directory that
// cannot be opened; 1 without a pattern; -1 without a record or when the walk failed.
int FSMSMakeFList(const char* pccDirPath, tFListData* poFLD, const char* pccHi);

// The callback of that walk; pvUser is the tFListData. 0 goes on, 2 skips a directory.
int FSysMpScMakeFL(tFSysMpScData*);

// Compares two update names as texts, the shorter one filled up with '0' on its left. Negative, 0 or positive.
// Filling on the left lets names of different length compare by number only where nothing follows the number:
// "9.000" is below "10.000", but "1A.000.tmp" against "1B.000" compares ".000.tmp" against digits. The lists rely
// on this order as it stands.
int UL_SCmp(const char*, const char*);
