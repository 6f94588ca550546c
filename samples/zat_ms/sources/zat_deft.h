// The cash-desk interface: the three exported functions, the session behind a handle, one request's exchange with
// the terminal module, and the texts and codes in which the till learns how it ended.
//
//   till --eftp_do--> MicroSMan --pipes--> zat_mm
//
// A request, an answer and a block of the module all begin with the same 14 bytes:
//
//   offset  size  meaning
//   0       2     work id, two characters
//   2       10    terminal id
//   12      2     length of the data (EFTPParsDLen)
//   14      n     data
#pragma once
#include <cstdint>
#include <stack>

#include "EFTPWork.h"
#include "export.h"
#include "micros.h"
#include "simplecfg.h"
#include "upipes.h"
#include "ztypes.h"

// The till's idle callback: gets the till's own pointer, returns non-zero to ask for a break of the exchange.
typedef int (*FUN_IDLE)(void*);

// How one call ended, inside. The till sees it through changeRet.
enum tEFTErr : int {
  eEFTElost = -1,    // no answer from the module (greeting or block)
  eEFTEnone = 0,     // a block was returned
  eEFTEempty = 1,    // null session handle
  eEFTEbadsts = 2,   // the session's state refuses requests
  eEFTEunsupcmd = 3, // a header of a class that does not continue an exchange; an end block too
  eEFTEwrparams = 4, // a poll without an open exchange
  eEFTEbusy = 5,     // a request with another terminal id during an exchange
  eEFTEupip = 6,     // the pipes could not be made or are not ready
  eEFTEinuse = 7,    // eftp_do entered from within eftp_do
  eEFTEmmabs = 8,    // the module could not be started
  eEFTEfinok = 9,    // the exchange ended successfully
  eEFTEfiner = 10,   // the exchange ended unsuccessfully
  eEFTEwpoint = 11,  // the handle is not a session
};

// Session state, a set of bits.
enum tEFTSts : uint32_t {
  eEFTSclear = 0,
  eEFTSbad = 1,    // every request is refused
  eEFTSnextr = 2,  // next request expected
  eEFTSinwork = 4, // in work
};

typedef std::stack<tString> tLogBase, *ptLogBase;

// Empties the stack of print lines, wiping each, and gives its memory back at once. Null is ignored.
void LogBaseClear(ptLogBase poLogBase);

// One coded text. For MesgRet (the library's own answers) pccRep is the text for any other code page. For MesgRm
// (codes of the module) pccRep, when not null, is the English phrase inside the module's text that pccMsg replaces.
struct tMesgRm {
  const char* pccCod; // the code
  long lCP;           // the code page of pccMsg
  const char* pccMsg; // the text, in that code page
  const char* pccRep;
};
extern const tMesgRm MesgRm[14], MesgRet[11];

// The pause that a till has to keep between the end of one call and the next card transaction: it depends on what
// the last transaction was and how it ended. All limits are seconds; zero or less means no pause.
struct tTOmanager {
  long lReqTOlimCok = 0;  // after a good end, any request
  long lReqTOlimLok = 0;  // after a good end of a login
  long lReqTOlimCbad = 0; // after a bad end, any request
  long lReqTOlimLbad = 0; // after a bad end of a login
  long lReqTOlimW = 0;    // in force now
  long lReqTOlimWok = 0;  // chosen for the current exchange, after a good end
  long lReqTOlimWbad = 0; // and after a bad one
  tTicks oReqTOcur = 0;   // when the last call ended; 0 = never
  tString oNameT;         // "TimeoutAfter-" and the current request's work id, for the log

  // Reads DefaultOkTimeout and DefaultNOkTimeout of section COMMON (8 s each when missing) and forgets the past.
  void GetCommonTO(SimpleCfg* poCfg);

  // Chooses the limits for an exchange opened by this request: keys TimeoutAfter-<work id>-Ok and -NOk of section
  // COMMON, by default the common limits, for a login 2 s. The good-end limit is in force afterwards.
  void GetLocalTO(SimpleCfg* poCfg, tEFTPWorkId oEPWId);

  // Puts the bad-end or the good-end limit in force.
  void ModLocalTO(bool fBad);

  // Notes that a call ends now.
  void SetReqTC();

  // True when a new exchange would come too early.
  bool TooEarly() const;
};

// One session of a cash desk, from eftp_create to eftp_destroy.
struct MicroSMan {
  void* pvSelfForCheck;   // this object's own address while it lives
  SimpleCfg oCfg;         // eftpos.cfg, kept for the limits of each request
  tString oIPath;         // the configuration path in double quotes, "-" when there is none; for the module
  tEFTSts oSts;           // session state
  tString oId;            // terminal id of the exchange in progress
  MicroSGlData_tag oMSGD; // the launcher's state; an exchange is open exactly while its pvExHandle is set
  UnnamedPipes oUP;       // the channel to the module
  unsigned char mucBUF[2048]; // one block from the module
  int iIn;                    // calls of eftp_do under way in this session
  long lCP;                   // the till's code page (key CP of section TILL, default 1251)
  bool fCanBreak;             // the idle callback may break an exchange (key BREAK, default off)
  bool fOldRet;               // results are the raw codes instead of 0 and 9 (key OLDRET, default off)
  tTOmanager oTOmg;           // the pause between requests
  tLogBase oPLlog;            // print lines of the exchange, the newest on top
  tEFTPWorkId oWIdLst;        // the work id that opened the exchange
  bool fSent = false;         // the module of the exchange has a request of it

  // Reads micromgl.cfg and eftpos.cfg from the installation's root (missing files leave the defaults) and sets the
  // global log level from key LOGLEVEL of section ENV. szConfigPath may be null or empty; it is for the module.
  explicit MicroSMan(const char* szConfigPath);
  ~MicroSMan();
  MicroSMan(const MicroSMan&) = delete;
  MicroSMan& operator=(const MicroSMan&) = delete;

  // True when pvSelf is a living session. Anything else is noted in the exception log with its address, and an
  // address that cannot be an object is not touched.
  static bool ItIsMe(void* pvSelf);
};

// Makes a session. szConfigPath is handed on to the module and may be null or empty. Null when memory ran out.
// The calls of one process come one at a time, whatever the session.
extern "C" ZAT_API void* eftp_create(char* szConfigPath);

// One step of an exchange: sends the request in pchInBuffer (14-byte header and data; null to poll) and puts the
// module's next block into pchOutBuffer (at least 2048 bytes, not terminated; null: send only). While it waits, pfIdle
// is called with pvData about every millisecond, when the setting BREAK allows it; non-zero asks for a break. One that
// throws ends the call as a lost link does. A cancellation of the calling thread takes effect after the call.
// Returns 0: the buffer holds a block, call again; 9: over, after a failure the buffer holds a "5X" block whose
// data begin with the reason "X..". With the setting OLDRET: the tEFTErr value (65535 for a lost link), but 9 for a
// handle that is null or no session. Waits at most 30 s for the module's start and 30.3 s for a block; after a break
// request as long as the module lives, and after the last block until the module has ended.
extern "C" ZAT_API int eftp_do(void* pvSelf, char* pchInBuffer, char* pchOutBuffer, FUN_IDLE pfIdle,
                               void* pvData);

// Ends a session: waits for a module that still runs (without limit: it may be in the middle of a payment) and
// frees everything. Ignored for null, for what is not a session, and from within the session's own idle callback.
extern "C" ZAT_API void eftp_destroy(void* pvSelf);

// Reads a header: the work id, the 10-character id and, when piL is given, the length of the data. eEFTEnone for a
// block that continues an exchange, eEFTEunsupcmd for anything else, end blocks included. pcBuf: 14 bytes.
tEFTErr EFTePars(char* pcBuf, tEFTPWorkId& oEPWId, tString& oId, int* piL);

// Writes a break request for this id, not terminated. 14, or 0 with nothing written when the id is not 10 long.
int do_eft_break(char* pcBuf, const tString& oId);

// Replaces the text of a "5X" answer by the till's own language where MesgRm has one for its code. Only for answers
// the till is about to see (eEFTEnone, eEFTEfinok, eEFTEfiner); the buffer is the till's of 2048 bytes, and nothing
// beyond them is touched whatever the answer's length field says. True when the answer was rewritten.
bool eftp_msgmod(char* pchOutBuffer, tEFTErr oErr, long lCP);

// Turns an inner result (code in the low 16 bits) into what the till gets, and a failure into a "5X" block in the
// buffer. poSelf may be null only for eEFTEempty and eEFTEwpoint.
int changeRet(MicroSMan* poSelf, char* pchOutBuffer, int ret);
