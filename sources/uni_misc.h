// Processes and sleep: running a command through the shell, starting a program without one and waiting for it.
#pragma once
#include <cstdint>

// Runs a command line through the system shell and waits for it. The exit status as a signed byte: 3 for exit 3, -1
// for exit 255, for null and for a shell that could not be run. *piOrg receives the raw wait status (-1 when nothing was
// run), by which a command that a signal ended can be told from one that exited with 0. Works in a host that ignores
// SIGCHLD or reaps children in a handler of its own: the signal has its default meaning for the time of the call, and
// afterwards the handler is called if a child of the host's has ended meanwhile.
int SysCall(const char* pccStr, int* piOrg = nullptr);

// SysCall with a limit: once iMS milliseconds are over, the shell and all that stayed in its process group are killed
// outright, and the raw status tells of SIGKILL. A raw status of -1: it could not be run, or somebody else has taken the
// status; what the command did is then unknown.
int SysCallFor(const char* pccStr, uint64_t iMS, int* piOrg = nullptr);

// Makes a file executable (mode 0777) and runs it by SysCall, the file's name being the command line. -1 when the
// mode cannot be set, and in *piOrg too.
int SysExec(const char* pccFile, int* piOrg = nullptr);

// Starts a program without a shell and without waiting. The line is split by ParsCdmLine into at most 9 words, the
// first being the program's path; quoted words keep their quotes. Environment, working directory, and every descriptor
// that is not close-on-exec are inherited; signals have their default meaning in the child, whatever the host does
// with them, and none is blocked. The program is the first of a session of its own, out of reach of Ctrl-C on the
// till's terminal. A handle for SysCallEnd, owned by the caller; null when no process could be made or memory is out. A program that
// cannot be executed, or an empty line, still gives a handle, and ends with status 255.
void* SysCallBegin(const char* pccStr);

// Waits for the program to end, without limit whatever fWait says, and frees the handle: 0. -1 for a null handle, and
// when the wait fails otherwise than by the child being gone already (the handle is kept then). A host that reaps all
// children itself has taken the exit status; to us the program has ended. The status is not told.
int SysCallEnd(void* pvHandle, bool fWait = true);

// True when the program has ended; *piStatus (may be null) receives its exit status, or 128 and the signal's number,
// or -1 when somebody else has taken the status. Does not wait, and leaves the handle and the status for SysCallEnd.
// False for a null handle.
bool SysCallEnded(void* pvHandle, int* piStatus);

// True when the program will not do its work any more: it was ended by a signal or could not be executed (status 255).
// An end whose status somebody else has taken counts as that too. False while it runs, after any other end, and for a
// null handle.
bool SysCallLost(void* pvHandle);

int GetPId();

// The process id too: the system does its work on one thread per process, and callers tell processes apart by it.
int GetTId();

void SleepS(uint32_t iS);

// Sleeps iMS milliseconds. An interrupted sleep goes on only while both whole seconds and a fraction are left: a rest
// of under a second, or of whole seconds exactly, is given up. Callers poll anyway and rely on a signal being able to
// cut a short sleep.
void SleepMS(uint32_t iMS);
