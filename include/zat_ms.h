/*
 * zat_ms.h - card payments for a cash desk: the three functions of libzat_ms.so.
 *
 * C99 and C++11. Link against libzat_ms.so, or load it with dlopen and take the three names with dlsym
 * (the function types zat_ms_create_fn, zat_ms_do_fn and zat_ms_destroy_fn are below).
 *
 * A till makes one session, sends a request and collects the answer block by block until the exchange ends:
 *
 *     char answer[ZAT_MS_BUFFER];
 *     char request[ZAT_MS_BUFFER] = "10" "0000000001" "0C" "000000125000";     // a sale of 1250.00
 *     void* till = eftp_create(0);
 *     memset(answer, 0, sizeof answer);
 *     int result = eftp_do(till, request, answer, 0, 0);
 *     while (result == ZAT_MS_MORE) {
 *       use(answer);                                       // a print line, a status, the response ...
 *       memset(answer, 0, sizeof answer);
 *       result = eftp_do(till, 0, answer, 0, 0);
 *     }
 *     // ZAT_MS_END: paid only when an approving "60" came AND answer is still all zeros, see eftp_do
 *     eftp_destroy(till);
 *
 * Messages. Requests and answers have one layout, no terminator:
 *
 *     offset  size  meaning
 *       0      2    operation: "10" sale, "30" login, "32" print line, "60" response, "5X" refusal ...
 *       2     10    terminal id, "0" on the left; answers repeat the id of the request
 *      12      2    length n of the data: two hexadecimal digits up to 254, above that the high byte and the
 *                   low byte (the first byte of this form is below '0', which tells the two forms apart)
 *      14      n    data, by operation; texts are Windows-1251
 *
 * A request may not have exactly 255 bytes of data: in this protocol a header with that length stands alone.
 *
 * Threads. The library makes no threads and belongs to none: any thread may make any call, and a session may be
 * made, used and ended by different ones. But all calls of one process come one at a time, whatever the session:
 * none may begin before the last one has returned, since they share the log. One thread for all of them does it, or
 * a mutex of the till's around each call. Loading and unloading the library count as calls, and no session may be
 * left when it is unloaded. Different processes need no care, they may work at the same time with different
 * terminal ids.
 *
 *     the idle callback     runs on the thread that called eftp_do, as a part of that call
 *     signal handlers       may interrupt a call, and must make none
 *     fork on any thread    always; the child may exec, exit, or end the sessions it inherited with eftp_destroy,
 *                           which leaves the parent's exchange alone. It must not go on with them.
 *     setenv, setlocale     not while a call runs, as beside most functions of the C library. The first eftp_create
 *                           sets ZAT_L_LEVEL when that does not hold the level of micromgl.cfg yet: make it before
 *                           other threads read the environment.
 *     sigaction of SIGCHLD  not during the call that opens an exchange: it has its default meaning for the process
 *                           while an update is being installed. Nothing else of the process is changed for a while:
 *                           signal mask and cancellation state only of the calling thread, and put back.
 *     everything else       as the till likes
 */
#ifndef ZAT_MS_H
#define ZAT_MS_H

#ifdef __cplusplus
extern "C" {
#endif

/* What an answer buffer must hold at least: the largest block there is. A request is never longer either. */
#define ZAT_MS_BUFFER 2048

/* Size of the header before the data of a message. */
#define ZAT_MS_HEADER 14

/*
 * Results of eftp_do:
 *
 *     ZAT_MS_MORE  the answer buffer holds the next block and the exchange goes on: call again
 *     ZAT_MS_END   the exchange is over or was refused: look into the answer buffer
 */
#define ZAT_MS_MORE 0
#define ZAT_MS_END 9

/*
 * Why an exchange did not end successfully: the first two bytes of the data of the "5X" block that eftp_do
 * leaves in the answer buffer together with ZAT_MS_END. A text for people follows them, in Russian
 * (Windows-1251) when CP in section [TILL] of micromgl.cfg is 1251, else in English.
 *
 *     XL  no greeting (30 s) or no block (30.3 s) from the terminal module, or it died
 *     X1  the handle is null
 *     X2  the session refuses requests
 *     X3  no such operation
 *     X4  a call without a request while no exchange is open
 *     X5  a request with another terminal id during an exchange
 *     X6  the pipes to the terminal module cannot be made
 *     X7  called from inside the idle callback
 *     X8  the terminal module cannot be started: another till uses this terminal id, an update is being
 *         installed, or no process could be made
 *     XA  the exchange ended unsuccessfully; or the pause between two requests of one session (eftpos.cfg) is
 *         not over, and nothing was sent
 *     XB  the handle is not a live session
 *
 * When one of X1 to X8 or XB answers the call that carries the first request of an exchange, nothing has
 * reached the terminal. After XL, and after any of them on a later call, the outcome is UNKNOWN: the terminal
 * may have taken the money. Ask it (operation "20") before the customer pays again.
 */
#define ZAT_MS_LOST "XL"
#define ZAT_MS_NO_HANDLE "X1"
#define ZAT_MS_STATE "X2"
#define ZAT_MS_COMMAND "X3"
#define ZAT_MS_NO_EXCHANGE "X4"
#define ZAT_MS_OTHER_ID "X5"
#define ZAT_MS_PIPES "X6"
#define ZAT_MS_NESTED "X7"
#define ZAT_MS_NO_MODULE "X8"
#define ZAT_MS_END_BAD "XA"
#define ZAT_MS_BAD_HANDLE "XB"

/*
 * Old-style results. With OLDRET=1 in section [TILL] of micromgl.cfg eftp_do returns one of these numbers in
 * place of ZAT_MS_END, for tills that were written for them, and puts no text into the answer buffer. Two
 * stay as they are: "X1" and "XB" come as ZAT_MS_END with their block, since without a session there are no
 * settings. OLD_END_BAD with a "5X" block in the answer buffer whose data begin with "I3" says that the pause
 * is not over.
 */
#define ZAT_MS_OLD_LOST 65535
#define ZAT_MS_OLD_STATE 2
#define ZAT_MS_OLD_COMMAND 3
#define ZAT_MS_OLD_NO_EXCHANGE 4
#define ZAT_MS_OLD_OTHER_ID 5
#define ZAT_MS_OLD_PIPES 6
#define ZAT_MS_OLD_NESTED 7
#define ZAT_MS_OLD_NO_MODULE 8
#define ZAT_MS_OLD_END_OK 9
#define ZAT_MS_OLD_END_BAD 10

/*
 * The till's idle callback. The library calls it about once a millisecond, on the thread that called eftp_do,
 * while it waits for a block of the terminal module, with the pvData that was given to eftp_do.
 *
 * Returns 0 to go on waiting. Any other value asks the terminal to break the operation off; after that the
 * library waits for its next block without a limit and does not call back in between. The terminal decides:
 * the answer may be "34" and an unsuccessful end, but an operation that has come too far is completed.
 *
 * Called only when BREAK=1 stands in section [TILL] of micromgl.cfg. It must not call eftp_do (answered with
 * "X7") nor eftp_destroy (does nothing), and no exception or longjmp may leave it.
 */
typedef int (*FUN_IDLE)(void* pvData);

/*
 * Makes a session: reads micromgl.cfg and eftpos.cfg from the directory above the library's own.
 *
 * szConfigPath  handed on to the terminal module as it stands; null or "" when it needs none. Only read, and
 *               not kept.
 *
 * Returns the session's handle, for the two other functions; null when it cannot be made. Missing
 * configuration files are no failure, every setting has a default. No process is started yet.
 */
void* eftp_create(char* szConfigPath);

/*
 * Sends a request, or collects the next block of the answer. The one function of an exchange:
 *
 *   - with a request and no open exchange it starts the terminal module, sends the request and waits for the
 *     first block of the answer;
 *   - with a null request it waits for the next block;
 *   - with a request (same terminal id) during an exchange it sends that too, then waits for the next block.
 *
 * pvSelf        handle from eftp_create. A null or dead one is answered with "X1" or "XB".
 * pchInBuffer   the request, 14 bytes of header and as many bytes of data as the header says; or null. Only
 *               read, and not kept. Wipe it afterwards when it holds card data.
 * pchOutBuffer  at least ZAT_MS_BUFFER bytes for the answer, written without a terminator. With null a
 *               request is sent and nothing is read: its answer waits for the next call.
 *
 * pfIdle        called while waiting, see FUN_IDLE; may be null.
 *
 * pvData        for pfIdle.
 *
 * Fill the answer buffer with zeros before each call. A successful end leaves it untouched, an unsuccessful
 * one writes a "5X" block whose data begin with one of the reasons above: that is the difference.
 *
 * Returns ZAT_MS_MORE with one block in pchOutBuffer, or ZAT_MS_END. A payment is made only when a response
 * "60" with an approving code came and the exchange then ended successfully.
 *
 * Waits up to 30 s for the module's greeting, up to 30.3 s for a block, and as long as other tills hold the
 * installation's locks. A module that ends by a signal ends the wait at once.
 *
 * After "XL" the exchange stays open, since the answer may still come: calls without a request collect it. A
 * request would go to the same module, and to a dead one without effect. To give the exchange up, end the
 * session, then ask for the outcome in a new one.
 *
 * A cancellation of the calling thread takes effect after the call.
 */
int eftp_do(void* pvSelf, char* pchInBuffer, char* pchOutBuffer, FUN_IDLE pfIdle, void* pvData);

/*
 * Ends a session and frees it. Null, a dead handle, and a call from inside the idle callback do nothing.
 *
 * Waits until the terminal module has ended when an exchange is still open, without a limit: the module may
 * be in the middle of a payment and is never killed. When no request has reached it, the till's end of its
 * pipe is closed first, so that a module that still waits for one can end. Collect the answer to its end first.
 */
void eftp_destroy(void* pvSelf);

/* The types of the three, for dlsym. */
typedef void* (*zat_ms_create_fn)(char* szConfigPath);
typedef int (*zat_ms_do_fn)(void* pvSelf, char* pchInBuffer, char* pchOutBuffer, FUN_IDLE pfIdle,
                            void* pvData);
typedef void (*zat_ms_destroy_fn)(void* pvSelf);

#ifdef __cplusplus
}
#endif

#endif /* ZAT_MS_H */
