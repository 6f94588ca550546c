// The operation codes of EFTP messages and the ways a parameter can be written: the two enumerations that the
// builders, the parsers and the cash-desk interface share, each with its one table of constant, name and text.
#pragma once
#include <cstddef>

// Two header characters as one number, the first in bits 8 to 15.
constexpr int EFTPWId(char first, char second) {
  return static_cast<unsigned char>(first) << 8 | static_cast<unsigned char>(second);
}

// One row per operation code: X(constant, value, text). Values with something in bits 16 to 23 are internal
// variants: on the wire they are their two low characters, and only a parser tells them apart. The ...Class rows
// are a first character alone and name a group.
#define EFTP_WORK_IDS(X)                                                                                     \
  X(eEFTPwidEmpty, -1, "no operation at all")                                                                \
  X(eEFTPwidNone, 0, "operation not set")                                                                    \
  X(eEFTPwidStub, EFTPWId('#', '#'), "placeholder before a request is known")                                \
  X(eEFTPwidEndOk, EFTPWId('#', '0'), "end of an exchange, success")                                         \
  X(eEFTPwidEndBad, EFTPWId('#', '1'), "end of an exchange, failure")                                        \
  X(eEFTPwidCancel, EFTPWId('#', '2'), "exchange cancelled")                                                 \
  X(eEFTPwidOpClass, '1', "class: payment operations")                                                       \
  X(eEFTPwidSale, EFTPWId('1', '0'), "sale")                                                                 \
  X(eEFTPwidPreA, EFTPWId('1', '1'), "pre-authorisation")                                                    \
  X(eEFTPwidCashA, EFTPWId('1', '2'), "cash advance")                                                        \
  X(eEFTPwidMailO, EFTPWId('1', '3'), "mail order")                                                          \
  X(eEFTPwidCredit, EFTPWId('1', '4'), "credit (refund)")                                                    \
  X(eEFTPwidEComm, EFTPWId('1', '5'), "e-commerce")                                                          \
  X(eEFTPwidOfSl, EFTPWId('1', '6'), "offline sale")                                                         \
  X(eEFTPwidOfCs, EFTPWId('1', '7'), "offline cash")                                                         \
  X(eEFTPwidRecurring, EFTPWId('1', '8'), "recurring payment")                                               \
  X(eEFTPwidVoid, EFTPWId('1', '9'), "void")                                                                 \
  X(eEFTPwidRevSale, EFTPWId('1', 'A'), "reversal of a sale")                                                \
  X(eEFTPwidRevCredit, EFTPWId('1', 'B'), "reversal of a credit")                                            \
  X(eEFTPwidRevCash, EFTPWId('1', 'C'), "reversal of a cash advance")                                        \
  X(eEFTPwidSale_B, EFTPWId('1', 'D'), "sale, B variant")                                                    \
  X(eEFTPwidOfSl_B, EFTPWId('1', 'E'), "offline sale, B variant")                                            \
  X(eEFTPwidCredit_B, EFTPWId('1', 'F'), "credit, B variant")                                                \
  X(eEFTPwidRevSale_B, EFTPWId('1', 'G'), "reversal of a sale, B variant")                                   \
  X(eEFTPwidRevCredit_B, EFTPWId('1', 'H'), "reversal of a credit, B variant")                               \
  X(eEFTPwidCash_B, EFTPWId('1', 'I'), "cash, B variant")                                                    \
  X(eEFTPwidVerify, EFTPWId('1', 'J'), "card verification")                                                  \
  X(eEFTPwidCreditOn, EFTPWId('1', 'K'), "online credit")                                                    \
  X(eEFTPwidBalanceI, EFTPWId('1', 'L'), "balance inquiry")                                                  \
  X(eEFTPwidInfo_B, EFTPWId('1', 'M'), "information, B variant")                                             \
  X(eEFTPwidDebit_B, EFTPWId('1', 'N'), "debit, B variant")                                                  \
  X(eEFTPwidRevInfo_B, EFTPWId('1', 'O'), "reversal of information, B variant")                              \
  X(eEFTPwidActiv, EFTPWId('1', 'P'), "activation")                                                          \
  X(eEFTPwidActivLoad, EFTPWId('1', 'Q'), "activation with load")                                            \
  X(eEFTPwidDtClass, '2', "class: day and totals")                                                           \
  X(eEFTPwidTransDt, EFTPWId('2', '0'), "transaction data")                                                  \
  X(eEFTPwidFinDay, EFTPWId('2', '1'), "end of day")                                                         \
  X(eEFTPwidRespDay, EFTPWId('2', '2'), "response to end of day")                                            \
  X(eEFTPwidFinAmount, EFTPWId('2', '3'), "totals")                                                          \
  X(eEFTPwidRespAmount, EFTPWId('2', '4'), "response to totals")                                             \
  X(eEFTPwidRepDay, EFTPWId('2', '5'), "day report")                                                         \
  X(eEFTPwidTransConf, EFTPWId('2', '6'), "transaction confirmation")                                        \
  X(eEFTPwidMiClass, '3', "class: service messages")                                                         \
  X(eEFTPwidLogin, EFTPWId('3', '0'), "login")                                                               \
  X(eEFTPwidLogok, EFTPWId('3', '1'), "login accepted")                                                      \
  X(eEFTPwidPrLine, EFTPWId('3', '2'), "print line")                                                         \
  X(eEFTPwidBrkReq, EFTPWId('3', '3'), "break request")                                                      \
  X(eEFTPwidBrkRes, EFTPWId('3', '4'), "break result")                                                       \
  X(eEFTPwidMsgInfo, EFTPWId('3', '6'), "information message")                                               \
  X(eEFTPwidDtaReq, EFTPWId('3', '7'), "data request")                                                       \
  X(eEFTPwidDtaRes, EFTPWId('3', '8'), "data response")                                                      \
  X(eEFTPwidRsClass, '5', "class: replies of the terminal")                                                  \
  X(eEFTPwidRfok, EFTPWId('5', '0'), "reply: ok")                                                            \
  X(eEFTPwidRfnoLog, EFTPWId('5', '1'), "reply: not logged in")                                              \
  X(eEFTPwidRpinrq, EFTPWId('5', '2'), "reply: PIN requested")                                               \
  X(eEFTPwidRonlrq, EFTPWId('5', '3'), "reply: online requested")                                            \
  X(eEFTPwidRfnoRef, EFTPWId('5', '4'), "reply: no reference")                                               \
  X(eEFTPwidRhldrq, EFTPWId('5', '5'), "reply: hold requested")                                              \
  X(eEFTPwidRmsgcon, EFTPWId('5', 'M'), "reply: message to confirm")                                         \
  X(eEFTPwidRubad, EFTPWId('5', 'X'), "reply: bad request (carries an error)")                               \
  X(eEFTPwidTrClass, '6', "class: transaction responses")                                                    \
  X(eEFTPwidRespons, EFTPWId('6', '0'), "transaction response")                                              \
  X(eEFTPwidFkClass, '7', "class: fork")                                                                     \
  X(eEFTPwidForkUni, EFTPWId('7', '0'), "universal fork message")                                            \
  X(eEFTPwidClClass, '8', "class: closing by reference")                                                     \
  X(eEFTPwidClRefSale, EFTPWId('8', '0'), "close a sale by reference")                                       \
  X(eEFTPwidClRefRreA, EFTPWId('8', '1'), "close a pre-authorisation by reference")                          \
  X(eEFTPwidClRefCred, EFTPWId('8', '4'), "close a credit by reference")                                     \
  X(eEFTPwidClRefOffS, EFTPWId('8', '6'), "close an offline sale by reference")                              \
  X(eEFTPwidClRefRevs, EFTPWId('8', 'A'), "close a reversal by reference")                                   \
  X(eEFTPwidPrLast, 0x010000 | EFTPWId('3', '2'), "internal: the last print line")                           \
  X(eEFTPwidRespLast, 0x020000 | EFTPWId('6', '0'), "internal: the last transaction response")               \
  X(eEFTPwidRespInfo, 0x030000 | EFTPWId('3', '6'), "internal: an information message that is a response")   \
  X(eEFTPwidBrkNow, 0x040000 | EFTPWId('3', '4'), "internal: break now")                                     \
  X(eEFTPwidDtaReqLst, 0x050000 | EFTPWId('3', '7'), "internal: the last data request")                      \
  X(eEFTPwidDtaResLst, 0x060000 | EFTPWId('3', '8'), "internal: the last data response")

enum tEFTPWorkId : int {
#define EFTP_CONSTANT(name, value, text) name = value,
  EFTP_WORK_IDS(EFTP_CONSTANT)
#undef EFTP_CONSTANT
};

// How one parameter is written, a set of bits.
enum tEFTPppMode : int {
  eEFTPppMdef = 0,   // fixed width, left-aligned, filled with blanks; must be present
  eEFTPppMvar = 1,   // variable length, closed by one ESC byte
  eEFTPppMlng = 2,   // stored as a number, written in decimal digits
  eEFTPppMopt = 4,   // optional: a lone ESC byte stands for an absent value
  eEFTPppMdig = 8,   // digits: right-aligned, filled with "0"
  eEFTPppMopta = 16, // optional: an absent value writes nothing at all
  eEFTPppMlngv = eEFTPppMvar | eEFTPppMlng,
  eEFTPppMoptv = eEFTPppMvar | eEFTPppMopt,
};

// One row of the table behind the codes, for tools and messages.
struct tEFTPWorkIdName {
  tEFTPWorkId oId;
  const char* pccName; // the constant's own name
  const char* pccText; // what it means, in English
};

// The whole table in the order of the codes above; *plCount receives the number of rows. Never null.
const tEFTPWorkIdName* EFTPWorkIdNames(size_t* plCount);

// The row of one code, internal variants included; null for a code that is not in the table.
const tEFTPWorkIdName* EFTPWorkIdName(int iId);
