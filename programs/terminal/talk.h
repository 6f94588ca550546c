// One exchange with a till: its request, the blocks that answer it, and the faults that simulator.cfg puts between.
//
// A talk that is over (the till has gone, a fault has ended it, the end block is out) swallows whatever is still
// said, so that an answer is written down straight, without a question after every block.
#pragma once
#include "faults.h"
#include "message.h"
#include "wire.h"

namespace zat {

enum tWaited : int { eWtime, eWbreak, eWgone };

class tTalk {
public:
  // Both must outlive the talk.
  tTalk(tWire& oWireIn, const tFaults& oFaultsIn) : oWire(oWireIn), oFaults(oFaultsIn) {}

  // Sends the greeting, block 0, where the wire has one.
  void Greet(const tString& oText);

  // Waits for the till's request. False: none came before the time was over or the till had gone.
  bool Listen(tRequest& oOut, int iMs);

  // One block of the answer. False once the talk is over.
  bool Say(tEFTPWorkId oWId, tFields& oFields);
  bool Say(tEFTPWorkId oWId, const char* pccTag, const tString& oValue);
  bool Say(tEFTPWorkId oWId);

  // The end block, "#0" or "#1"; the talk is over then.
  void End(bool fGood);

  // Waits and hears the till meanwhile. A break request ends the wait when fCanBreak; otherwise it is answered as
  // come too late before the next block, because the till waits for one.
  tWaited Wait(int iMs, bool fCanBreak);

  // What a simulated terminal does when it is lost: dies on the spot, or stays silent for a while; the talk is over.
  void Die(int iSignal);
  void FallSilent(int iMs);

  bool Over() const { return fOver; }
  bool Ended() const { return fEnded; } // the end block has gone out
  const tFaults& Faults() const { return oFaults; }

private:
  void Put(const tString& oMsg, bool fGreeting);
  bool Disturbed(const tString& oMsg);
  void AnswerLateBreak();

  tWire& oWire;
  const tFaults& oFaults;
  tString oTId;
  long lBlock = 0;          // number of the last block
  bool fOver = false;       //
  bool fEnded = false;      //
  bool fBreakAsked = false; // heard, and not answered yet
};

} // namespace zat
