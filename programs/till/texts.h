// Everything that the cash desk says to people, in English and Russian.
#pragma once
#include <fmt/format.h>

#include "ztypes.h"

namespace zat::till {

// clang-format off
// One name a text; the texts themselves stand in the one table of texts.cpp, in this order.
enum class Text : int {
  // what the command line asks and answers
  About, Usage, Options, Arguments, Commands, Examples, ExitCodes, SeeHelp, OptHelp, OptVersion, OptLib,
  OptConfig, OptTid, OptTrack2, OptJson, OptWait, ArgAmount, ArgRrn, ArgWorkId, ArgData, CmdSale,
  CmdRefund, CmdPreauth, CmdReverse, CmdVoid, CmdLogin, CmdTotals, CmdEndOfDay, CmdRaw, Missing,
  NotUnderstood, BadAmount, NegativeAmount, AmountDecimals, AmountTooLong, AmountZero, BadTid, BadRrn,
  BadTrack2, BadWorkId, DataTooLong, Data255, BadData, BadWait, OptLink, CmdJournal, CmdRecover,
  CmdSettle, OptJournal, OptNoJournal, OptAll, ArgNumber, ArgFate, BadNumber, BadFate,
  // the library
  LibMissing, LibUnreadable, LibForeign, LibNoSession, LinkClosed,
  // what happens meanwhile
  Connecting, StOk, StNotLoggedIn, StPin, StOnline, StNoReference, StHold, StConfirm, StInfo,
  StBreak, StNoBreak, StPause, Seconds, BreakAsked, BreakNoEffect, LeftAtOnce,
  // outcomes
  Approved, Done, Declined, Aborted, Refused, Unknown, BadUsage, ExitApproved, ExitDone, ExitDeclined,
  ExitUsage, ExitAborted, ExitRefused, ExitUnknown,
  // why
  WhyResponse, WhyRefusal, WhyBreak, WhyEnded, WhyGoodEnd, WhyNoResponse, WhyBroken, WhyContradiction, WhyEndless,
  WhyUnfinished, WhyBadRequest, WhyModuleMissing, WhyLost, WhyHandle, WhyState, WhyCommand, WhyNoExchange,
  WhyOtherId, WhyPipes, WhyNested, WhyNoModule, WhyPause, WhyLeft, WhyStrange, WhyNoJournal, AdviceUnknown, AdviceRecover, ShAmount,
  ShRrn, ShAuth, ShCard, ShMessage, OtherAmount,
  // the journal
  JournalUnreadable, JournalUnwritable, JournalMended, JournalDamaged, JournalTrouble, JournalEmpty, NotOpen, WarnOne, WarnSome,
  NothingUnknown, AdviceSettle, WaitsForModule, OfTerminal, ByPerson, NotMade, Running, GroundReference, GroundLast,
  GroundNothingSince, GroundEmptyDay, GroundGone, GroundHidden, GroundOtherTill, GroundTwoAlike, GroundDayClosed,
  GroundTooEarly, GroundNoAnswer, GroundNotShown, GroundLost,
  eCount
};
// clang-format on

// The user's language and the code page of the terminal, from the environment: LC_ALL, LC_MESSAGES or LANG
// for the language, LC_ALL, LC_CTYPE or LANG for the code page. Works on a machine where the named locale is
// not installed. Russian is chosen only when the code page can show it.
struct Manner {
  bool fRussian = false;
  tString oCharset; // an iconv name
};
Manner UserManner();

// Chooses the language of Say; English before the first call.
void SpeakRussian(bool fRussian);

// The text in the chosen language. Never null.
const char* Say(Text text);

// The same with its places filled in.
template<class... Args> tString Say(Text text, const Args&... args) {
  return fmt::format(fmt::runtime(Say(text)), args...);
}

} // namespace zat::till
