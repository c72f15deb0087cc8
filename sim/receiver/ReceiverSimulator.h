#ifndef OSTREL_SIM_RECEIVER_SIMULATOR_H
#define OSTREL_SIM_RECEIVER_SIMULATOR_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FaultPlan.h"
#include "GingaServer.h"
#include "ReceiverControls.h"
#include "SectionFilter.h"
#include "SectionSink.h"
#include "StreamPacer.h"

namespace Ostrel {

class TCommand;
class TDataRequestCommand;
class TransportStreamSource;
class TunerInput;

// A receiver in software: a GingaServer whose tuners play transport streams.
//
// Every command of the command library is executed. An open data request
// becomes a section filter (see SectionFilter for the matching rule) that
// lives for the request's time-out, passes each distinct matching section to
// the data destination with injectData under the request's own key, and is
// then closed (closeOpenRequest). A new filter passes nothing during its first
// filterStartMs, as a hardware filter takes a moment to start; this also
// leaves the sender time to record its request. A request sent from a
// notification on the delivery thread passes at once: nothing can be
// delivered before its sender has recorded it. A section is matched against
// the filters only once every delivery before it has been made (unless a
// delay fault holds deliveries back), so playing as fast as possible loses no
// section that a notification asks for next. Deliveries run on the
// simulator's delivery thread, one at a time, with no lock of the simulator
// held. A synchronous request is answered at once, on the caller's thread,
// from the sections the stream has already carried; it fails when there are
// none.
//
// Keys, application status, video and the tuner list are the controls'
// (ReceiverControls). Tuners: one per input, ids 0, 1, ... in order of
// addition.
//
// Thread-safe. The simulator's own lock guards filters, deliveries, the
// carried sections and the command state; it is never held while calling
// out (injectData, closeOpenRequest).
class ReceiverSimulator : public GingaServer, private SectionSink {
 public:
  typedef std::chrono::steady_clock Clock;

  static constexpr unsigned char kTerrestrialTuner = 1;

  struct Options {
    unsigned short screenWidth = 1920;
    unsigned short screenHeight = 1080;
    unsigned short sourceWidth = 1920;
    unsigned short sourceHeight = 1080;
    unsigned int filterStartMs = 20;
    // Sections remembered per tuner for synchronous requests.
    size_t maxCarriedSections = 8192;
  };

  // What the simulator has done; for tests and reports.
  struct Counters {
    uint64_t filtersOpened = 0;
    uint64_t filtersClosed = 0;   // at the end of their time-out, or at shutdown
    uint64_t deliveries = 0;      // injectData calls made for filters
    uint64_t faultDropped = 0;    // sections the fault plan dropped
    uint64_t faultCorrupted = 0;  // sections the fault plan damaged
    uint64_t discarded = 0;       // due deliveries whose filter had closed, or no destination
    uint64_t syncAnswered = 0;
    uint64_t syncRefused = 0;
    uint64_t commandsRefused = 0;  // execute returned 0
  };

  ReceiverSimulator();
  explicit ReceiverSimulator(const Options& options);
  virtual ~ReceiverSimulator();

  // Adds a tuner that plays source (null: fed by hand with feed). Returns its
  // id. The tuner reads once start() has been called (at once if it was).
  int addTuner(std::unique_ptr<TransportStreamSource> source,
               unsigned char type = kTerrestrialTuner);

  // Pacing of the tuners added from now on.
  void setPacing(StreamPacer::Mode mode, uint64_t bitRate);

  // Starts the readers of the tuners with a source; stop() stops them. Open
  // filters keep their time-outs either way. A reader starts once the filters
  // open at that moment pass sections, so that none misses the first packet.
  void start();
  void stop();
  // Starts one tuner's reader the same way; false when there is no such
  // tuner, it has no source or it runs already.
  bool startTuner(int tunerId);

  // Feeds bytes to a tuner without source, on the caller's thread.
  bool feed(int tunerId, const unsigned char* data, size_t size);

  // The tuner with this id, or null. Owned by the simulator.
  TunerInput* getTuner(int tunerId) const;
  size_t getTunerCount() const;

  void setFaultPlan(const FaultPlan& plan);

  // Executes command; see the class comment. Any thread.
  virtual int execute(TCommand* command, TCommand** response);

  // Returns once every command in execute on other threads has returned and
  // every delivery queued before the call has been made or discarded. On the
  // delivery thread it does not wait for deliveries.
  virtual void waitBusyCommands();

  Counters getCounters() const;
  unsigned int getFilterStartMs() const { return m_options.filterStartMs; }
  size_t getOpenFilterCount() const;
  // The listener holding a key, or "" when it is free.
  std::string getKeyHolder(unsigned int keyCode) const;
  // Every application status change, in order: application id and code.
  std::vector<std::pair<std::string, unsigned char>> getAppStatusChanges() const;

 private:
  struct OpenFilter {
    TDataRequestCommand* command;
    SectionFilter filter;
    Clock::time_point passFrom;
    Clock::time_point deadline;
  };
  struct Delivery {
    uint64_t seq;
    uint64_t filterId;
    int tunerId;
    short pid;
    short tableId;
    short tableIdExt;
    std::vector<unsigned char> data;
  };
  // Tuner, PID, table id, extension (long form, else 0), section number.
  typedef std::pair<std::pair<int, unsigned short>, std::pair<unsigned int, unsigned int>>
      CarriedKey;

  ReceiverSimulator(const ReceiverSimulator&);
  ReceiverSimulator& operator=(const ReceiverSimulator&);

  // SectionSink, on a tuner's reader thread (or a feeding thread).
  virtual void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                         unsigned int size);

  // Commands, each on the caller's thread.
  int executeOpenRequest(TDataRequestCommand* command);
  int executeSyncRequest(int tunerId, short pid, short tableId, short tableIdExt);

  void sleepUntilFiltersPass(int tunerId);  // -1: every tuner
  void beginExecute();
  void endExecute();
  void deliveryLoop();
  void learnProgramPids(int tunerId, const unsigned char* data, unsigned int size);

  // REQUIRES: m_mutex held.
  void __remember(int tunerId, unsigned short pid, const unsigned char* data, unsigned int size);
  // REQUIRES: m_mutex held. Decides the faults for one section; false when it is
  // dropped. May damage *data.
  bool __applyFaults(unsigned short pid, std::vector<unsigned char>* data);
  // REQUIRES: m_mutex held.
  Clock::time_point __nextWake() const;
  // REQUIRES: m_mutex held.
  bool __takeDue(Clock::time_point now, Delivery* delivery);
  // REQUIRES: m_mutex held.
  void __takeExpired(Clock::time_point now, const uint64_t* keep,
                     std::vector<TDataRequestCommand*>* expired);
  bool callOut(const std::vector<TDataRequestCommand*>& expired, Delivery* delivery);

  const Options m_options;
  ReceiverControls m_controls;
  StreamPacer::Mode m_ePacing;
  uint64_t m_ullBitRate;

  mutable std::mutex m_mutex;
  std::condition_variable m_condDelivery;      // wakes the delivery thread
  mutable std::condition_variable m_condIdle;  // wakes waitBusyCommands
  bool m_bStarted;
  bool m_bShutdown;
  std::vector<std::unique_ptr<TunerInput>> m_vecTuners;
  std::map<uint64_t, OpenFilter> m_mapFilters;
  std::multimap<Clock::time_point, Delivery> m_mapDeliveries;
  std::set<uint64_t> m_setPendingSeq;
  uint64_t m_ullNextFilterId;
  uint64_t m_ullNextSeq;
  int m_iExecuting;
  std::map<CarriedKey, std::vector<unsigned char>> m_mapCarried;
  std::map<int, size_t> m_mapCarriedCount;
  FaultPlan m_faults;
  std::mt19937 m_rng;
  Counters m_counters;
  std::thread::id m_deliveryThreadId;
  // Nesting of execute on this thread: a callback run by a synchronous answer
  // may call waitBusyCommands, which must not wait for its own thread.
  static thread_local int s_iExecuteDepth;
  std::thread m_deliveryThread;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_RECEIVER_SIMULATOR_H
