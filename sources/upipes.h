// The two-way channel between the cash desk's process and the terminal module that it starts: a pair of
// unnamed pipes, whose far ends the module inherits and finds again by the two numbers on its command line.
//
// A framed block on the wire, the same in both directions:
//
//   offset  size  meaning
//        0     1  start byte 0x17
//        1     2  N, the number of data bytes, low byte first
//        3     N  data; a 0x17 among them is data
//      3+N     1  end byte 0x17
//
//      +----+------+------+-------- - - - ---+----+
//      | 17 | N low| N hi |   N data bytes   | 17 |
//      +----+------+------+-------- - - - ---+----+
//
// One thread at a time uses one side. All descriptors are non-blocking; where an operation waits, it sleeps
// in poll.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

struct UnnamedPipes {
  // How a block travels, two flags: framed, and "the caller can break off" (a framed read returns at once
  // when no block has begun; without the first flag it has no effect).
  enum tBType : uint32_t { eBTnone = 0, eBTver0 = 1, eBTcanb = 2, eBTv0cb = eBTver0 | eBTcanb };

  bool fImported = false;   // the local descriptors came from Import: Close forgets them without closing
  std::string oExpH;        // the text of the last Export
  int miHLoc[2] = {-1, -1}; // this side's descriptors: read, write; -1 when closed
  int miHExt[2] = {-1, -1}; // the other side's, held by the creator until Close: read, write; -1 when closed
  size_t lRest = 0;         // bytes still to come, end byte included, of a block that nobody will read on
  bool fRestLate = false;   // that block was given up for its silence: a new one may come instead of the rest

  UnnamedPipes() = default;
  ~UnnamedPipes() { Close(); }
  UnnamedPipes(const UnnamedPipes&) = delete; // two owners would close each other's descriptors
  UnnamedPipes& operator=(const UnnamedPipes&) = delete;

  // Makes the channel, on the side that will start the other one; a channel that was open is closed first.
  // False when the system gives no pipes: everything is closed then. This side's descriptors are
  // close-on-exec, the other side's are inherited by every child; none is 0, 1 or 2, even in a process that
  // has closed those.
  //
  // The other side's descriptors stay open here until Close. So a write here never meets a pipe without a
  // reader, and what a module wrote before it died can still be read; on the other hand the module's end is
  // not seen here as the end of the pipe.
  bool Open();

  // The text for the other side: its write descriptor, '#', its read descriptor ("9#6"); "-" when there are
  // none. Owned by the object, valid until the next Export.
  const char* Export();

  // Takes over the side that an exported text names: a decimal write descriptor, any one character, a decimal
  // read descriptor. The descriptors are inherited ones and are used as they are (non-blocking, as Open made
  // them). False for null and for a text that begins with '-': the channel keeps its descriptors, but counts
  // as not imported from then on. False for any other text without two numbers in the range of an int: the
  // channel is closed then.
  bool Import(const char* pccIn);

  // True when both local descriptors are there.
  bool IsReady() const { return miHLoc[0] != -1 && miHLoc[1] != -1; }

  // One system call, never a wait. The number of bytes moved; 0 for an empty or full pipe, for an end of the
  // pipe, on any error and on a closed channel.
  int Read(void* pvIn, int iLen);
  int Write(const void* pvOut, int iLen);

  // While a read waits, `gone` is asked about every 100 ms whether the other side has ended; once it says so
  // and the pipe is empty, the read stops waiting, as if the time had run out. It is needed because the
  // creator holds a write end itself and so never sees the end of the pipe. Null: nobody is asked. `peer` is
  // handed to it.
  void SetPeerCheck(bool (*gone)(void* peer), void* peer);

  // Waits until something can be read or nobody can write any more, for at most iMs milliseconds (a negative
  // count is taken as 0); interrupted waits are taken up again. True when it came to that, false when the
  // time has passed. On a closed channel the time just passes.
  bool WaitIn(int iMs);

  // Reads one block, into at most iLen bytes. Returns the number of data bytes stored; bytes beyond them may
  // have been overwritten.
  //
  // Framed: bytes before a start byte are skipped. eBTver0 waits for the block without limit. eBTv0cb returns
  // 0 at once when the pipe is empty, and after one byte that is no start byte; a block that has begun is
  // waited for, and given up with 0 when it stays silent for 30 seconds. 0 also for an empty block, for a
  // channel that is not open, and when the pipe ends before the block does. A block announced longer than
  // iLen gives its first iLen bytes; the next framed read discards the others (eBTv0cb returns 0 while some
  // are still to come). A block without an end byte where it was announced goes on up to the first 0x17 after
  // that place. Nothing is read beyond the block: what follows stays in the pipe, for this process or for
  // another one.
  //
  // Unframed: waits without limit until iLen bytes are stored; fewer only when the pipe ends before.
  int ReadBlock(void* pvIn, int iLen, tBType oBT);

  // Writes one block. A peer that is gone makes the result 0; no signal reaches the host.
  //
  // Framed: one system call, never a wait; returns iLen, or 0 when the pipe has no room. A block of up to
  // 4092 data bytes goes out whole or not at all; of a longer one a part may be in the pipe after a 0, and
  // the reader takes what is sent next for the rest of it. Only the low 16 bits of iLen are announced: keep
  // blocks shorter.
  //
  // Unframed: waits without limit for room, then returns iLen.
  int WriteBlock(const void* pvOut, int iLen, tBType oBT);

  // Ends what this side writes: the other side reads what is on its way, and then finds the end. What it writes itself
  // can still be read. An imported descriptor is only forgotten.
  void HangUp();

  // Closes the channel: own local descriptors and the other side's; imported ones are only forgotten. Always
  // true.
  bool Close();

  // The start and the end byte of a framed type, into two bytes; false, with nothing stored, for an unframed
  // type.
  static bool GetSysC(tBType oBT, char* mcSysC);

private:
  bool (*procGone)(void*) = nullptr;
  void* pvPeer = nullptr;

  bool MayBreak() const { return miHExt[0] == -1; } // nobody here keeps a reader for what is written
  bool AwaitIn(int iMs);
  size_t Fill(char* pcIn, size_t lLen, char* pcEnd, int iSilenceMs);
  bool FindStart(bool fCanBreak, const char* mcSysC);
  int ReadFramed(char* pcIn, size_t lLen, bool fCanBreak, const char* mcSysC);
  int GiveUp(size_t lLeft);
  void Consumed(size_t lBytes);
};
