#include "faults.h"
#include "simplecfg.h"
#include "util.h"
#include <charconv>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace zat {

namespace {

struct tFaultRow {
  const char* pccKey;
  const char* pccForm; // a colon in it: the value may have, or with no default must have, a second number
  long lMaxAt;
  long lDefHow; // -1: the second number must be given
  long lMaxHow;
  const char* pccWhat;
};

constexpr char kFile[] = "simulator.cfg";
constexpr long kBlocks = 100000, kMs = 600000, kBytes = 65000;

// One row per tFaultId, in its order.
const tFaultRow moFaultRows[eFInum] = {
    {"Pause", "BLOCK:MS", kBlocks, -1, kMs, "wait MS milliseconds before the block (0: the greeting)"},
    {"NoGreeting", "1", 1, 0, 0, "send no greeting"},
    {"Silent", "BLOCK[:MS]", kBlocks, 40000, kMs, "stop answering at the block; end after MS"},
    {"Cut", "BLOCK[:BYTES]", kBlocks, 0, kBytes,
     "end after BYTES bytes of the block's frame (0: half of it)"},
    {"Die", "BLOCK[:SIGNAL]", kBlocks, SIGKILL, 64, "die before the block by SIGNAL (0: exit with ExitCode)"},
    {"ExitCode", "CODE", 255, 0, 0, "exit code at the end"},
    {"UnknownId", "1", 1, 0, 0, "ten question marks for the terminal id in every block"},
    {"Duplicate", "BLOCK", kBlocks, 0, 0, "send the block twice"},
    {"Noise", "BLOCK[:BYTES]", kBlocks, 16, kBytes, "BYTES stray bytes before the block"},
    {"Size", "BLOCK:BYTES", kBlocks, -1, kBytes,
     "make the block's data BYTES long, cut or filled with blanks"},
    {"PrintLines", "LINES", kBlocks, 0, 0, "make every slip LINES lines long"},
    {"Card", "MS", kMs, 0, 0, "the card is presented after MS; until then a break is heard"},
    {"Nak", "TIMES", 1000, 0, 0, "framed link: answer NAK to the first TIMES frames of a connection"},
    {"BadCheck", "TIMES", 1000, 0, 0, "framed link: a wrong check byte in the first TIMES frames sent"},
    {"Log", "1", 1, 0, 0, "not a fault: add the module's own lines to zat_comm.log"},
};

bool IsSwitch(const tFaultRow& oRow) { return oRow.pccForm[0] == '1'; }

// One whole number from the front of the text, at most lMax; the text is left behind it. False: there is none.
bool TakeNumber(const char*& pcc, const char* pccEnd, long lMax, long& lOut) {
  unsigned long ul = 0;
  auto [pccRest, oErr] = std::from_chars(pcc, pccEnd, ul);
  if (oErr != std::errc() || ul > static_cast<unsigned long>(lMax)) return false;
  pcc = pccRest;
  lOut = static_cast<long>(ul);
  return true;
}

// Reads one key's value; an empty one turns the fault off, as a terminal's own section may want to.
bool ReadFault(const char* pcc, const tFaultRow& oRow, tFault& oOut) {
  const char* const pccEnd = pcc + strlen(pcc);
  tFault o;
  o.lHow = oRow.lDefHow;
  if (*pcc) {
    if (!TakeNumber(pcc, pccEnd, oRow.lMaxAt, o.lAt)) return false;
    const bool fTwo = strchr(oRow.pccForm, ':') != nullptr;
    if (fTwo && *pcc == ':' && !TakeNumber(++pcc, pccEnd, oRow.lMaxHow, o.lHow)) return false;
    if (pcc != pccEnd || o.lHow < 0) return false;
    if (IsSwitch(oRow) && o.lAt == 0) o.lAt = -1;
  }
  oOut = o;
  return true;
}

void ReadSection(const SimpleCfg& oCfg, const tString& oSection, tFaults& oFaults, tString* poComplaints) {
  for (int i = 0; i < eFInum; ++i) {
    const tFaultRow& oRow = moFaultRows[i];
    const char* pccValue = oCfg.GetValue(oSection.c_str(), oRow.pccKey);
    if (!pccValue || ReadFault(pccValue, oRow, oFaults.mo[i]) || !poComplaints) continue;
    *poComplaints +=
        "[" + oSection + "] " + oRow.pccKey + "=" + pccValue + ": not of the form " + oRow.pccForm + "\n";
  }
}

} // namespace

const tFault* tFaults::Due(tFaultId oId, long lBlock) const {
  return mo[oId].lAt == lBlock ? &mo[oId] : nullptr;
}

tFaults ReadFaults(const tString& oFile, const tString& oTId, tString* poComplaints) {
  SimpleCfg oCfg;
  oCfg.LoadFile(oFile.c_str());
  tFaults oFaults;
  tString oShort = oTId;
  EraseLeftChars(oShort, '0', "0");
  ReadSection(oCfg, "FAULTS", oFaults, poComplaints);
  ReadSection(oCfg, "FAULTS-" + oShort, oFaults, poComplaints);
  return oFaults;
}

tString FaultsText() {
  tString oText = "Keys of simulator.cfg, sections [FAULTS] and [FAULTS-terminal id]:\n";
  for (const tFaultRow& oRow : moFaultRows) {
    oText += "  ";
    AppendStrPad(oText, (tString(oRow.pccKey) + "=" + oRow.pccForm).c_str(), 24, ' ', true);
    oText += oRow.pccWhat;
    if (oRow.lDefHow > 0) oText += "; " + std::to_string(oRow.lDefHow) + " when not given";
    oText += '\n';
  }
  return oText;
}

tString FaultsFile(const tString& oRoot, const tString& oConfig) {
  if (!oConfig.empty() && oConfig != "-")
    for (const tString& oDir : {oConfig + "/", oConfig.substr(0, oConfig.rfind('/') + 1)})
      if (!oDir.empty() && access((oDir + kFile).c_str(), R_OK) == 0) return oDir + kFile;
  return oRoot + kFile;
}

} // namespace zat
