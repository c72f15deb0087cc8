#ifndef OSTREL_GINGA_COMMON_CORE_H
#define OSTREL_GINGA_COMMON_CORE_H

#include <pthread.h>
#include <sys/time.h>

#include <string>

#include "GingaDataDestination.h"
#include "OstrelExport.h"

namespace Ostrel {

class GingaServer;
class TISDBTTable;

// Called with status 0 (table delivered), 1 (timed out, table null) or 2
// (event data, request id 0, user data null). The table is lent for the call
// only. Returns non-zero when the notification is accepted. It runs on the
// caller's thread (cache answers), on the server's delivery thread (with no lock
// of the library held) or on the follower's monitor thread (with the follower's
// lock held), unserialised.
typedef int (*RequestNotificationCallback)(unsigned int requestId, unsigned char status,
                                           void* userData, TISDBTTable* table);

// The one process-wide object through which the middleware uses the library.
// It holds the server that executes every command it builds and the callback
// through which table requests are answered; both are read and written as
// atomic words, so binding them needs no lock. The instance is never destroyed.
//
// Every operation that takes errorCode writes it only when it is not null:
// 0 on success, or one of -1, -3, -4, -5, -7, -8, -10, -11, -12 (docs/mainpage.md,
// "Error codes", tables them). The library catches no exceptions: one from the allocator or
// the command library passes to the caller.
class OSTREL_EXPORT OstrelGingaCommonCore : public GingaDataDestination {
 public:
  virtual ~OstrelGingaCommonCore();

  // Section data from the server, on its delivery thread: parsed, cached when
  // cacheable, handed to every outstanding request with exactly this key and
  // announced when it is event data. data stays the caller's. Returns 1 when the
  // table answered a request or was announced, else 0.
  virtual int injectData(int tunerId, short pid, short tableId, short tableIdExt, void* context,
                         unsigned char* data, unsigned int size);

  // ---- Core object and server binding ----

  // The singleton, created by the first call; any thread.
  static OstrelGingaCommonCore* getInstance();

  // Binds the server that executes every command (not owned). 0, and the
  // previous binding kept, when server is null.
  int setServer(GingaServer* server);

  // Sets the notification callback; null clears it. Always 1.
  int setRequestNotificationCallback(RequestNotificationCallback callback);

  // Blocks until the server has no busy command; 0, errorCode untouched, when
  // no server is bound.
  int waitBusyCommands(short* errorCode);

  // ---- Table requests ----

  // Asks for a table. mode, as unsigned 8-bit: 0 cache only, 1 cache then
  // server, anything else server only.
  // - Answered from the cache (modes 0 and 1): the callback gets status 0 and
  //   the cached table on this thread; the result is its verdict (0 with no
  //   callback or a refusal, logged), errorCode is left as it was, and the
  //   server is not asked even when the notification failed. The cache keeps
  //   one table per PID: its answer is the table it holds under pid, whatever
  //   that table's id and extension (the PAT when pid is 0, another
  //   programme's PMT on a shared PID). Check the table's ids, or ask in mode
  //   2, where another table may share the PID.
  // - Mode 0 and not cached: 0 with -11 (no cache for the tuner) or -12.
  // - Sent to the server: followed until a table answers it (status 0, on the
  //   delivery thread) or its time-out (status 1, on the monitor thread). 0
  //   with -3 (no command), -5 (send failed) or -10 (sent, but no follower
  //   category for pid and tableId: no notification will ever come).
  // userData: on success the library releases it exactly once through release
  // (when both are set), after its last use; on failure the caller keeps it.
  int requestData(unsigned int requestId, signed char mode, int tunerId, short pid, short tableId,
                  short tableIdExt, void* userData, void (*release)(void*), short* errorCode);

  // The cache step of requestData, unchanged (a cache answer notifies). The
  // server request is synchronous: nothing is followed and nothing notified;
  // userData is released once send has returned successfully. 0 with -3 or -5
  // on failure.
  int requestDataSync(unsigned int requestId, signed char mode, int tunerId, short pid,
                      short tableId, short tableIdExt, void* userData, void (*release)(void*),
                      short* errorCode);

  // The time-out of a request for this PID and table id, in whole seconds
  // (docs/mainpage.md, "Requests that can be followed"); 1 s, logged, for a key
  // the follower cannot follow.
  static timeval getTimeout(short pid, short tableId, short tableIdExt);

  // The tuner's cached table for pid (0), or null (-11 no cache, -12 not
  // cached). The table stays the cache's: never destroy it; it is valid only
  // while the cache keeps it, which another thread may end at any time.
  TISDBTTable* getFromCache(int tunerId, short pid, short tableId, short tableIdExt, void* userData,
                            short* errorCode);

  // Calls the notification callback on this thread; 1 (0) when it accepted,
  // 0 with -7 (no callback) or -8 (refused), both logged. Releases nothing.
  int dispatchRequestFeedback(unsigned int requestId, unsigned char status, void* userData,
                              TISDBTTable* table, short* errorCode);

  // Reports a timed-out request (status 1, no table) on the instance; returns
  // the callback's result, or 0. Called by the follower's monitor thread.
  int requestTimedOut(unsigned int requestId, int tunerId, short pid, short tableId,
                      short tableIdExt, void* userData, timeval timeOut,
                      unsigned int requestCounter);

  // ---- Data injection helpers ----

  // A new table parsed from one section, chosen by PID and table id; or null.
  TISDBTTable* parseData(int tunerId, short pid, short tableId, short tableIdExt, void* context,
                         unsigned char* data, unsigned int size);

  // 1 when the table's type is one the cache keeps.
  int isCacheable(TISDBTTable* table);

  // 1 when the table is event data, announced even unasked.
  int isEventData(TISDBTTable* table);

  // ---- Video size ----
  // Synchronous commands to the bound server, on the caller's thread, with no
  // lock taken. tsId and layerId name the video; every value passes to the
  // server, and back from its answer, unchanged (never clipped or checked).
  // Outputs are required (written without a test) and are written only on
  // success, only from the server's answer; on failure they keep what they
  // held. errorCode: 0; -3 no command could be made; -5 send failed; -4 (gets
  // and check only) send succeeded but gave no answer, or an answer of another
  // class. The command is deleted within the call, and so is the answer of a
  // successful send.

  // The present geometry: source and destination position and size.
  int getVideoSize(unsigned short tsId, unsigned short layerId, short* outSx, short* outSy,
                   unsigned short* outSw, unsigned short* outSh, short* outDx, short* outDy,
                   unsigned short* outDw, unsigned short* outDh, short* errorCode);

  // The default geometry, as getVideoSize.
  int getDefaultVideoSize(unsigned short tsId, unsigned short layerId, short* outSx, short* outSy,
                          unsigned short* outSw, unsigned short* outSh, short* outDx, short* outDy,
                          unsigned short* outDw, unsigned short* outDh, short* errorCode);

  // The width and height of the source picture; nothing else is written.
  int getSourceVideoSize(unsigned short tsId, unsigned short layerId, unsigned short* outSw,
                         unsigned short* outSh, short* errorCode);

  // Sets a geometry. Succeeds (1, error code 0) whenever send does, with or
  // without an answer, which is deleted unread; never reports -4.
  int setVideoSize(unsigned short tsId, unsigned short layerId, short sx, short sy,
                   unsigned short sw, unsigned short sh, short dx, short dy, unsigned short dw,
                   unsigned short dh, short* errorCode);

  // Submits a geometry; the outputs receive the geometry the server answers
  // with, never the inputs.
  int checkVideoSize(unsigned short tsId, unsigned short layerId, short sx, short sy,
                     unsigned short sw, unsigned short sh, short dx, short dy, unsigned short dw,
                     unsigned short dh, short* outSx, short* outSy, unsigned short* outSw,
                     unsigned short* outSh, short* outDx, short* outDy, unsigned short* outDw,
                     unsigned short* outDh, short* errorCode);

  // ---- Keys and application status ----
  // Synchronous commands; the answer, if any, is not read.

  // Reserves keyCode for listenerId.
  int reserveKey(std::string listenerId, unsigned int keyCode, short* errorCode);

  // Releases keyCode; listenerId is accepted but not passed on.
  int releaseKey(std::string listenerId, unsigned int keyCode, short* errorCode);

  // Reports that the status of application appId changed.
  int notifyAppStatusChange(std::string appId, unsigned char notificationCode, short* errorCode);

  // ---- Tuner list ----

  // The number of tuners copied; *ids and *types receive new malloc'd arrays
  // (owned by the caller, to be freed with free) of that many ids and types in
  // index order, even when there are none (an array of no tuners may be null
  // where malloc(0) gives null). Tuners have 8-bit indices: at most the first
  // 256 are copied and counted. Judged by the answer, not by send's result: an
  // answer received is used even when send reports failure. On failure 0 is
  // returned and neither output is written: -1 ids or types null (no command
  // made); -3 no command could be made; -4 no answer of the tuner-list class
  // ("No answer received."), or the arrays could not be allocated ("Could not
  // allocate memory.", nothing kept). Caller's thread, no lock taken.
  int getTunerList(int** ids, unsigned char** types, short* errorCode);

 private:
  OSTREL_LOCAL OstrelGingaCommonCore();
  OstrelGingaCommonCore(const OstrelGingaCommonCore&);
  OstrelGingaCommonCore& operator=(const OstrelGingaCommonCore&);

  OSTREL_LOCAL GingaServer* getServer();
  OSTREL_LOCAL RequestNotificationCallback getCallback();

  // Atomic words: written and read with the compiler's atomic builtins, the
  // singleton pointer with release and acquire ordering.
  GingaServer* m_pServer;
  RequestNotificationCallback m_pNotificationCallback;

  OSTREL_LOCAL static OstrelGingaCommonCore* s_pInstance;
  OSTREL_LOCAL static pthread_mutex_t s_pSingMutex;
};

}  // namespace Ostrel

#endif  // OSTREL_GINGA_COMMON_CORE_H
