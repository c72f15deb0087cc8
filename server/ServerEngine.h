#ifndef OSTREL_SERVER_ENGINE_H
#define OSTREL_SERVER_ENGINE_H

#include <stdint.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "GingaServer.h"
#include "SectionGatherer.h"
#include "SectionSource.h"

namespace Ostrel {

class TDataRequestCommand;

// A complete receiver server over one SectionSource: the source says where
// sections come from, the engine does the rest.
//
// Open data requests (0x600 with the open flag): each request key (tuner,
// PID, table id, extension) has one gatherer (SectionGatherer), fed by one
// section filter per tuner and PID that every key on that PID shares. Only
// sections whose CRC_32 holds reach a gatherer (the others are counted); a
// section matches a key as SectionMatch says. Each new section of the key's
// table is injected once, under the key, and answers every request of the
// key open at that moment, which are then closed (closeOpenRequest); the
// next section waits for the next request. A request sent from another
// thread than the delivery thread is answered no sooner than filterStartMs
// after it was executed, so that its sender records it first (or from the
// moment its sender says it has, ownRequestsRecorded); one sent from a
// notification on the delivery thread is answered at once. A request not
// answered by its time-out (the command's seconds) is closed. Once its last
// request is closed, a key's gatherer keeps its filter open for one more
// time-out of that request (for filterStartMs only when its table has come
// whole: the request the answer prompts finds what followed), holding what
// comes until the next request. When a tuner's demux has no free filter,
// requests on a new PID wait for one (a lingering gatherer gives its filter
// up first); they still close at their time-out.
//
// Synchronous requests (0x601, or 0x600 without the open flag) are answered
// on the caller's thread before execute returns: with every matching section
// the source has carried lately, else with the first section that comes
// within syncWaitMs (0: carried sections only); they fail when none comes.
//
// The tuner list (0x500) is the source's; every other command goes to the
// source's executeControl.
//
// One delivery thread, started by the first data request, reads the source, opens
// and closes its filters and makes every injection and closeOpenRequest,
// one at a time, with no lock of the engine held. Thread-safe.
class ServerEngine : public GingaServer {
 public:
  typedef std::chrono::steady_clock Clock;

  struct Options {
    Options() : filterStartMs(20), syncWaitMs(10000) {}
    unsigned int filterStartMs;
    unsigned int syncWaitMs;
  };

  struct Counters {
    Counters()
        : requestsOpened(0),
          filtersOpened(0),
          filterWaits(0),
          deliveries(0),
          tablesCompleted(0),
          timedOut(0),
          failed(0),
          crcErrors(0),
          repetitions(0),
          syncAnswered(0),
          syncRefused(0),
          commandsRefused(0) {}
    uint64_t requestsOpened;   // open requests taken
    uint64_t filtersOpened;    // section filters opened on the source
    uint64_t filterWaits;      // keys that had to wait for a free filter
    uint64_t deliveries;       // injections for open requests
    uint64_t tablesCompleted;  // keys whose table came whole
    uint64_t timedOut;         // open requests closed unanswered at their time-out (or shutdown)
    uint64_t failed;           // open requests closed because their filter failed
    uint64_t crcErrors;        // sections dropped for a bad CRC_32
    uint64_t repetitions;      // sections a gatherer had delivered already
    uint64_t syncAnswered;
    uint64_t syncRefused;
    uint64_t commandsRefused;  // execute returned 0
  };

  // source is not owned and must outlive the engine. Nothing calls the
  // source before the first command, so a derived server may own its source,
  // and then calls shutdown() in its destructor, before the source goes.
  ServerEngine(SectionSource* source, const Options& options);
  // Stops the delivery thread and closes every open request undelivered.
  virtual ~ServerEngine();

  // Executes command; see the class comment. Any thread.
  virtual int execute(TCommand* command, TCommand** response);

  // Returns once every execute running on another thread has returned and no
  // call-out is being made (on the delivery thread: once the other executes
  // have returned).
  virtual void waitBusyCommands();

  // Returns once every filter that the requests executed so far need is open
  // on the source (or waits for a free one, or was refused) and each of those
  // requests is past its start-up time: a source that starts playing after it
  // loses nothing those requests ask for. Not on the delivery thread.
  void settle();

  // The calling thread has recorded every open request it sent so far (its
  // executes have returned): they may be answered at once instead of
  // filterStartMs after they were executed. A scan that sends its first
  // requests and then starts the source calls it in between, so that the
  // source's start waits for nothing.
  void ownRequestsRecorded();

  // Stops the delivery thread early (a derived server's destructor calls it
  // before its source goes); idempotent.
  void shutdown();

  Counters getCounters() const;
  // Filters open on the source now, and open requests not yet answered.
  size_t getOpenFilterCount() const;
  size_t getPendingRequestCount() const;
  // CRC errors counted on one PID of one tuner.
  uint64_t getCrcErrors(int tunerId, unsigned short pid) const;

 protected:
  SectionSource* getSource() const { return m_pSource; }
  const Options& getOptions() const { return m_options; }

 private:
  struct Waiter;
  struct Request {
    TDataRequestCommand* command;  // null for a synchronous waiter
    Waiter* waiter;
    Clock::time_point passFrom;
    Clock::time_point deadline;
    Clock::duration timeOut;
    std::thread::id sender;
  };
  struct Key {
    int tunerId;
    short pid;
    short tableId;
    short tableIdExt;
    bool operator<(const Key& other) const;
  };
  struct Gather {
    SectionGatherer gatherer;
    std::list<Request> requests;
    Clock::time_point lingerUntil;
  };
  typedef std::pair<int, unsigned short> FilterKey;
  struct Filter {
    Filter() : keys(0), open(false), opening(false), failed(false), waited(false) {}
    unsigned int keys;  // gathers that need it
    bool open;          // opened on the source, or being opened
    bool opening;       // being opened by the delivery thread
    bool failed;        // the source refused it, or its device failed
    bool waited;        // counted once as waiting for a free filter
  };
  struct CallOut;

  ServerEngine(const ServerEngine&);
  ServerEngine& operator=(const ServerEngine&);

  int executeOpenRequest(TDataRequestCommand* command);
  int executeSyncRequest(int tunerId, short pid, short tableId, short tableIdExt);
  int executeTunerList(TCommand** response);
  bool waitForSection(int tunerId, short pid, short tableId, short tableIdExt,
                      std::vector<unsigned char>* section);
  bool isValidKey(int tunerId, short pid) const;
  void beginExecute();
  void endExecute();

  void deliveryLoop();
  // REQUIRES: m_mutex held. Adds a request to its key's gather.
  void __attach(const Key& key, const Request& request);
  // REQUIRES: m_mutex held. Decides the call-outs due at now.
  void __plan(Clock::time_point now, CallOut* out);
  void __planFilters(CallOut* out);
  void __dropGather(std::map<Key, Gather>::iterator it);
  void __forget(const Key& key, Waiter* waiter);
  bool __isSettled() const;
  bool __take(SectionSource::Section* section);
  bool __offer(SectionGatherer* gatherer, const unsigned char* data, unsigned int size,
               std::vector<unsigned char>* owner);
  Clock::time_point __nextWake() const;
  // With no lock held.
  void callOut(CallOut* out);
  GingaDataDestination* getDestination();

  SectionSource* const m_pSource;
  const Options m_options;

  mutable std::mutex m_mutex;
  std::condition_variable m_condIdle;  // waitBusyCommands and synchronous waiters
  bool m_bShutdown;
  bool m_bCallingOut;
  bool m_bPlanDue;  // the state changed since the delivery thread last planned
  int m_iExecuting;
  std::map<Key, Gather> m_mapGathers;
  std::map<FilterKey, Filter> m_mapFilters;
  std::map<FilterKey, uint64_t> m_mapCrcErrors;
  Counters m_counters;
  std::thread::id m_deliveryThreadId;
  std::atomic<bool> m_bWarnedNoDestination;
  static thread_local int s_iExecuteDepth;
  std::thread m_deliveryThread;
};

}  // namespace Ostrel

#endif  // OSTREL_SERVER_ENGINE_H
