#ifndef OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H
#define OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H

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
#include "ReceiverControls.h"
#include "ReceiverSimulator.h"
#include "SectionFilter.h"
#include "SectionSink.h"
#include "StreamPacer.h"

namespace Ostrel {

class TCommand;
class TDataRequestCommand;
class TransportStreamSource;
class TunerInput;

// The simulated receiver behind ReceiverSimulator (see its comment for what
// each command does). Not installed: it names the tuners' internals.
//
// Thread-safe. Its own lock guards filters, deliveries, the carried sections
// and the command state; it is never held while calling out (injectData,
// closeOpenRequest on the server).
class ReceiverSimulator::Impl : private SectionSink {
 public:
  typedef std::chrono::steady_clock Clock;

  // server (not owned) is the GingaServer whose data destination gets the
  // deliveries and which holds the open requests.
  Impl(GingaServer* server, const Options& options);
  virtual ~Impl();

  // Adds a tuner that plays source (null: fed by hand with feed). Returns its
  // id. The tuner reads once start() has been called (at once if it was).
  int addTuner(std::unique_ptr<TransportStreamSource> source, unsigned char type);

  // Pacing of the tuners added from now on.
  void setPacing(StreamPacer::Mode mode, uint64_t bitRate);

  void start();
  void stop();
  bool startTuner(int tunerId);
  bool feed(int tunerId, const unsigned char* data, size_t size);

  // The tuner with this id, or null. Owned by the simulator.
  TunerInput* getTuner(int tunerId) const;
  size_t getTunerCount() const;

  void setFaultPlan(const FaultPlan& plan);

  int execute(TCommand* command, TCommand** response);
  void waitBusyCommands();

  Counters getCounters() const;
  unsigned int getFilterStartMs() const { return m_options.filterStartMs; }
  size_t getOpenFilterCount() const;
  std::string getKeyHolder(unsigned int keyCode) const;
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

  Impl(const Impl&);
  Impl& operator=(const Impl&);

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

  GingaServer* const m_pServer;
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

#endif  // OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H
