// One call of eftp_do: the road from the till's request to the module and back, one block at a time.
#pragma once
#include "zat_deft.h"

namespace zat {

class Exchange {
public:
  // The arguments of eftp_do; oSelf has passed its check. pfIdle is dropped when the settings do not allow a break.
  Exchange(MicroSMan& oSelf, char* pchIn, char* pchOut, FUN_IDLE pfIdle, void* pvData);
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  // The whole call after the handle check: what eftp_do returns. The session's call counter is raised meanwhile, and
  // lowered on every way out, an exception included.
  int Run();

private:
  // The steps of a call in their order. Each returns eEFTEnone to go on, or the code that ends the call.
  tEFTErr Steps();
  tEFTErr TakeRequest();
  tEFTErr StartModule();
  tEFTErr AwaitGreeting();
  tEFTErr SendRequest();
  tEFTErr AwaitBlock();
  tEFTErr HandOver();

  int Read(unsigned char* pbBuffer, int iLen, tTicks iMsWait, FUN_IDLE idle);
  int Break();
  int RefuseEarly();
  void LogBlock();
  void LogFinDay();
  tEFTErr Finish();
  int Close(int result);
  void Leave();

  MicroSMan& self;
  char* in;
  char* out;
  FUN_IDLE idle;
  void* idleData;
  tEFTErr err = eEFTEnone;
  tEFTPWorkId workId = eEFTPwidStub;
  tString id;
  int dataLength = 0;
  int blockLength = 0; // bytes of self.mucBUF that came from the module
  bool inside = false; // this call is counted in self.iIn
  bool early = false;  // refused because the pause since the last request is not over
};

} // namespace zat
