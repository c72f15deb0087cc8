#ifndef OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H
#define OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FaultPlan.h"
#include "ReceiverControls.h"
#include "ReceiverSimulator.h"
#include "SectionSink.h"
#include "SectionSource.h"
#include "StreamPacer.h"

namespace Ostrel {

class TransportStreamSource;
class TunerInput;

// The simulated receiver's section source: tuners that play transport
// streams, their section filters, the fault plan between the filters and the
// engine, what the streams carried lately (for synchronous requests) and the
// controls (keys, video, application status). Not installed: it names the
// tuners' internals.
//
// The tuners' readers queue every section they reassemble (the service
// information PIDs, the PMT PIDs the PAT names, every PID ever filtered) in
// stream order, without waiting for the engine, while the engine may want it:
// a filter is open on the tuner, the engine holds a section, or the queue is
// not empty. readSection takes them in that order and decides at that moment
// whether a filter is open on the section's PID, and which faults it meets:
// a request sent from a notification (the next section of a table, the PMTs
// a PAT names) has its filter open before the section after the notified one
// is taken, however far ahead the reader is. A reader queues the sections of
// a batch of packets at once, under one lock; the queue is bounded: a reader
// that fills it sleeps until the engine has taken half of it. Delayed
// sections (a fault) are decided when they are queued and do not hold the
// reader back.
//
// Thread-safe: its own lock guards the filters, the queue and the fault
// state, a second one the carried sections; neither is held while calling
// out, nor are both held at once.
class ReceiverSimulator::Impl : public SectionSource {
 public:
  typedef std::chrono::steady_clock Clock;

  explicit Impl(const Options& options);
  virtual ~Impl();

  // Adds a tuner that plays source (null: fed by hand with feed). Returns its
  // id. The tuner reads once start() has been called (at once if it was).
  int addTuner(std::unique_ptr<TransportStreamSource> source, unsigned char type);
  void setPacing(StreamPacer::Mode mode, uint64_t bitRate);
  void start();
  void stop();
  bool startTuner(int tunerId);
  bool feed(int tunerId, const unsigned char* data, size_t size);
  TunerInput* getTuner(int tunerId) const;
  // Waits until the engine has dealt with every section queued so far (and
  // is back from the last one it was given); false when timeout passed first.
  bool waitDrained(std::chrono::milliseconds timeout);
  void setFaultPlan(const FaultPlan& plan);
  void getFaultCounts(uint64_t* dropped, uint64_t* corrupted) const;
  std::string getKeyHolder(unsigned int keyCode) const;
  std::vector<std::pair<std::string, unsigned char>> getAppStatusChanges() const;

  // SectionSource.
  virtual int getTunerCount() const;
  virtual bool getTuners(std::vector<Tuner>* tuners);
  virtual bool openFilter(int tunerId, unsigned short pid);
  virtual void closeFilter(int tunerId, unsigned short pid);
  virtual ReadResult readSection(int timeoutMs, Section* section);
  virtual void interrupt();
  virtual void readingStopped();
  virtual void findCarried(int tunerId, unsigned short pid,
                           std::vector<std::vector<unsigned char>>* sections);
  virtual int executeControl(TCommand* command, TCommand** response);

 private:
  struct Queued {
    uint64_t seq;
    // Clock::time_point::min() unless delayed; a delayed one's filter and
    // faults were decided when it was queued.
    Clock::time_point due;
    Section section;  // intact: checked by the demultiplexer, not damaged since
  };
  // A section demultiplexed and not yet queued.
  struct Staged {
    unsigned short pid;
    std::vector<unsigned char> data;
  };
  // One tuner's sink: gathers the sections of a batch of packets, on the
  // thread that feeds the tuner's demultiplexer, and queues them at its end.
  struct TunerSink : SectionSink {
    TunerSink(Impl* owner, int tunerId) : m_pOwner(owner), m_iTunerId(tunerId), m_pTuner(NULL) {}
    virtual void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                           unsigned int size);
    virtual void onPacketsDone(int tunerId);
    Impl* const m_pOwner;
    const int m_iTunerId;
    TunerInput* m_pTuner;  // set once, before the tuner starts
    std::vector<Staged> m_vecStaged;
  };
  // Tuner, PID, table id, extension (long form, else 0), section number.
  typedef std::pair<std::pair<int, unsigned short>, std::pair<unsigned int, unsigned int>>
      CarriedKey;

  Impl(const Impl&);
  Impl& operator=(const Impl&);

  // On a tuner's reader thread (or a feeding thread): remembers the staged
  // sections and queues those the engine may want; empties *staged.
  void queueSections(int tunerId, std::vector<Staged>* staged);
  static void learnProgramPids(TunerInput* tuner, const unsigned char* data, unsigned int size);

  // REQUIRES: m_mutex held. Whether the engine may still want a section of
  // tunerId queued now.
  bool __wantsSections(int tunerId) const;
  // REQUIRES: m_mutex held. Every section queued up to seq dealt with.
  bool __isDrained(uint64_t seq) const { return m_ullDone >= seq; }
  // REQUIRES: m_mutex held. Waits, lock held, until every section queued so
  // far is dealt with (delayed ones aside), or the engine has stopped.
  void __waitFed(std::unique_lock<std::mutex>* lock);
  // REQUIRES: m_carriedMutex held.
  void __remember(int tunerId, unsigned short pid, const unsigned char* data, unsigned int size);
  // REQUIRES: m_mutex held. Decides the faults for one section; false when it
  // is dropped. May damage *data, and then sets *damaged when not null.
  bool __applyFaults(unsigned short pid, std::vector<unsigned char>* data, bool* damaged = NULL);

  const Options m_options;
  ReceiverControls m_controls;
  StreamPacer::Mode m_ePacing;
  uint64_t m_ullBitRate;

  mutable std::mutex m_mutex;
  std::condition_variable m_condQueue;    // wakes readSection
  std::condition_variable m_condReader;   // wakes readers waiting for room
  std::condition_variable m_condDrained;  // wakes waitDrained and feed
  bool m_bStarted;
  bool m_bShutdown;
  bool m_bInterrupted;
  bool m_bEngineStopped;      // the engine takes nothing more
  bool m_bEngineWaiting;      // readSection sleeps on m_condQueue, not yet woken
  unsigned int m_uiStopping;  // stop() in progress: readers neither wait nor queue
  unsigned int m_uiReadersWaiting;
  bool m_bReadersWoken;  // the waiting readers have been woken already
  unsigned int m_uiDrainWaiters;
  std::vector<std::unique_ptr<TunerInput>> m_vecTuners;
  std::vector<std::unique_ptr<TunerSink>> m_vecSinks;  // one per tuner, same index
  std::atomic<int> m_aiTunerCount;                     // m_vecTuners.size(), read unlocked
  std::set<std::pair<int, unsigned short>> m_setFilters;
  std::deque<Queued> m_dequeQueue;    // in stream order
  uint64_t m_ullPushed;               // sequence of the last section queued
  uint64_t m_ullTaken;                // sequence of the last section given to the engine
  uint64_t m_ullDone;                 // every section up to this one dealt with
  mutable std::mutex m_carriedMutex;  // guards the two maps below
  std::map<CarriedKey, std::vector<unsigned char>> m_mapCarried;
  std::map<int, size_t> m_mapCarriedCount;
  FaultPlan m_faults;
  std::mt19937 m_rng;
  uint64_t m_ullDropped;
  uint64_t m_ullCorrupted;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H
