#include "outcomes.h"
#include "cp1251.h"
#include "util.h"
#include <iterator>

namespace zat {

namespace {

// The codes of failed payments are those that the cash-desk library translates; 7 and 4 keep the English phrase
// inside their text, because the library replaces only that phrase there.
const tOutcome moOutcomes[] = {
    {5, eEdeclined, true, "05", "ОТКАЗ БАНКА"_1251, 0, "declined by the host"},
    {9, eEfailed, true, "09", "HOST CONNECTION ERROR", 0, "no connection to the host"},
    {51, eEdeclined, true, "51", "НЕДОСТАТОЧНО СРЕДСТВ"_1251, 0, "declined: insufficient funds"},
    {54, eEdeclined, false, "54", "СРОК КАРТЫ ИСТЁК"_1251, 0, "declined by the terminal: expired card"},
    {55, eEdeclined, true, "55", "НЕВЕРНЫЙ ПИН"_1251, 0, "declined: wrong PIN"},
    {70, eEsignature, true, "00", "ОДОБРЕНО"_1251, 0, "approved, asks for the holder's signature"},
    {71, eEapproved, true, "00", "ОДОБРЕНО"_1251, 5000, "approved after 5 s"},
    {72, eEdeclined, true, "05", "ОТКАЗ БАНКА"_1251, 5000, "declined by the host after 5 s"},
    {73, eEnoCard, false, "I8", "No card presented", 0, "no card: waits for a break, at most 60 s"},
    {77, eEkilled, true, "00", "ОДОБРЕНО"_1251, 0, "approved and stored, then the module is killed"},
    {78, eEsilent, true, "00", "ОДОБРЕНО"_1251, 0, "approved and stored, then 40 s of silence"},
    {81, eEfailed, false, "I1", "Incorrect request format", 0, "request not understood"},
    {82, eEfailed, false, "I2", "Incorrect card answer format", 0, "card not understood"},
    {84, eEfailed, false, "I4", "Incorrect sequence of requests", 0, "requests in the wrong order"},
    {85, eEfailed, false, "I5", "Request not sent to the terminal", 0, "request not passed on"},
    {86, eEfailed, false, "I6", "No answer from the terminal", 0, "terminal does not answer"},
    {87, eEfailed, true, "I7", "TERMINAL: Incorrect sequence of answers", 0,
     "terminal answers in the wrong order"},
    {91, eEfailed, false, "M1", "No link to the terminal", 0, "terminal not reached"},
    {92, eEfailed, true, "M2", "Not all answers received", 0, "answers missing"},
    {93, eEfailed, true, "M3", "Host answer error", 0, "host's answer not received"},
    {94, eEfailed, true, "M4", "HOST 1: NETWORK ERROR (110)", 0, "network error"},
    {95, eEfailed, true, "M5", "HOST 1: SSL ERROR (1)", 0, "transport security error"},
};

const tOutcome oOthers = {-1, eEapproved, true, "00", "ОДОБРЕНО"_1251, 0, "approved"};

// What goes over the wire at the end, by ending.
const char* const mpccBlocks[] = {"60, #0", "55, 60, #0", "60, #1", "5X, #1", "55..., 5X, #1", "-", "-"};
static_assert(std::size(mpccBlocks) == eEsilent + 1);

tString Row(const char* pccAmount, const char* pccBlocks, const char* pccCode, const char* pccWhat) {
  tString oLine = "  ";
  AppendStrPad(oLine, pccAmount, 8, ' ', true);
  AppendStrPad(oLine, pccBlocks, 15, ' ', true);
  AppendStrPad(oLine, pccCode, 6, ' ', true);
  return oLine + pccWhat + "\n";
}

tString Row(const tOutcome& o) {
  tString oAmount = "others";
  if (o.iLast >= 0) {
    oAmount = "n.";
    AppendStrPad(oAmount, std::to_string(o.iLast).c_str(), 2, '0', false);
  }
  return Row(oAmount.c_str(), mpccBlocks[o.oEnding], o.pccCode, o.pccWhat);
}

} // namespace

const tOutcome& OutcomeOf(uint64_t ulAmount) {
  for (const tOutcome& o : moOutcomes)
    if (static_cast<uint64_t>(o.iLast) == ulAmount % 100) return o;
  return oOthers;
}

const tOutcome& OutcomeApproved() { return oOthers; }

tString OutcomesText() {
  tString oText = "The last two digits of the amount choose how a payment ends:\n" +
                  Row("AMOUNT", "LAST BLOCKS", "CODE", "WHAT HAPPENS");
  for (const tOutcome& o : moOutcomes) oText += Row(o);
  return oText + Row(oOthers) +
         "For a reversal the part to take back chooses, never the whole amount. From 1000.00 on the PIN is "
         "asked for.\n";
}

} // namespace zat
