// What the terminal can do: one row a request, with the function that answers it.
#pragma once
#include "day.h"
#include "message.h"
#include "talk.h"

namespace zat {

struct tOperation;

// One request being answered.
struct tCase {
  tTalk& oTalk;
  tRequest& oReq;
  const tOperation& oOp;
  const tString& oRoot; // installation root, ending with '/'
};

// What a payment does to the day's sums.
enum tKind : int {
  eKnone,    // no payment
  eKsale,    // the customer pays
  eKcash,    // the same, for cash handed out
  eKcredit,  // the customer gets money back
  eKpreauth, // counts as a sale once it is closed by reference
  eKinfo,    // no money moves
};

enum tOperationFlag : unsigned {
  eOpin = 1,     // asks for the PIN from kPinFrom on
  eOonline = 2,  // asks the host
  eOanyData = 4, // the data do not matter
};

struct tOperation {
  tEFTPWorkId oWId;
  void (*Answer)(tCase&);
  tKind oKind;         // for operations on an earlier payment: the kind of that payment, eKnone for any
  unsigned uFlags;     //
  const char* pccName; // on the slip, Windows-1251
};

// The row of an operation; null for one that the terminal does not know.
const tOperation* FindOperation(tEFTPWorkId oWId);

// Answers one request from its first block to its end block.
void AnswerRequest(tTalk& oTalk, tRequest& oReq, const tString& oRoot);

// A coded refusal: "5X" and the unsuccessful end.
struct tRefusal {
  const char* pccCode; // two characters
  const char* pccText; // for the cash desk, Windows-1251
};
void Refuse(tCase& oCase, const tRefusal& oWhy);

extern const tRefusal oNotUnderstood, oBadCard, oNotFound, oNotAllowed, oWrongAmount, oNotStored;

// Payments.
void AnswerPayment(tCase&);
void AnswerReversal(tCase&);
void AnswerVoid(tCase&);
void AnswerClosing(tCase&);
void AnswerRepeat(tCase&);
void AnswerConfirmation(tCase&);

// The day and the rest.
void AnswerEndOfDay(tCase&);
void AnswerTotals(tCase&);
void AnswerReport(tCase&);
void AnswerLogin(tCase&);
void AnswerBreak(tCase&);
void AnswerDataRequest(tCase&);

} // namespace zat
