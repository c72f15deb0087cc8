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
// A tuner's reader hands a section of an open filter on only once the
// engine has dealt with the one before (it is back in readSection), so that
// requests sent from a notification see the very next section, as on a
// receiver whose sections come slower than it answers them. Delayed sections
// (a fault) do not hold the reader back. Played as fast as possible, that
// hand-over is the whole cost: so each side first waits a few microseconds
// without sleeping (the other is usually about to answer) before it sleeps.
//
// Thread-safe: its own lock guards the filters, the queue, the carried
// sections and the fault state; it is never held while calling out.
class ReceiverSimulator::Impl : public SectionSource, private SectionSink {
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
  // Waits until no section waits in the queue and the engine is back from
  // the last one it was given; false when timeout passed first.
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
  virtual void findCarried(int tunerId, unsigned short pid,
                           std::vector<std::vector<unsigned char>>* sections);
  virtual int executeControl(TCommand* command, TCommand** response);

 private:
  struct Queued {
    uint64_t seq;
    Clock::time_point due;
    Section section;
  };
  // Tuner, PID, table id, extension (long form, else 0), section number.
  typedef std::pair<std::pair<int, unsigned short>, std::pair<unsigned int, unsigned int>>
      CarriedKey;

  Impl(const Impl&);
  Impl& operator=(const Impl&);

  // SectionSink, on a tuner's reader thread (or a feeding thread).
  virtual void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                         unsigned int size);
  void learnProgramPids(int tunerId, const unsigned char* data, unsigned int size);

  // REQUIRES: m_mutex held.
  void __remember(int tunerId, unsigned short pid, const unsigned char* data, unsigned int size);
  // REQUIRES: m_mutex held. Decides the faults for one section; false when it
  // is dropped. May damage *data.
  bool __applyFaults(unsigned short pid, std::vector<unsigned char>* data);

  const Options m_options;
  ReceiverControls m_controls;
  StreamPacer::Mode m_ePacing;
  uint64_t m_ullBitRate;

  mutable std::mutex m_mutex;
  std::condition_variable m_condQueue;   // wakes readSection
  std::condition_variable m_condReader;  // wakes readers waiting for the engine
  bool m_bStarted;
  bool m_bShutdown;
  bool m_bInterrupted;
  std::vector<std::unique_ptr<TunerInput>> m_vecTuners;
  std::set<std::pair<int, unsigned short>> m_setFilters;
  std::deque<Queued> m_dequeQueue;  // in order of due time
  uint64_t m_ullPushed;             // sequence of the last section queued
  uint64_t m_ullDone;               // sequence of the last section the engine dealt with
  uint64_t m_ullTaken;              // sequence of the last section readSection gave
  // Read without the lock by a side that waits without sleeping: m_ullDone,
  // and a count of what may end readSection's wait (a section queued, an
  // interrupt, the shutdown).
  std::atomic<uint64_t> m_aullDone;
  std::atomic<uint64_t> m_aullQueueEvents;
  // Waits without sleeping that ran out lately, each side's.
  std::atomic<unsigned int> m_auiReaderMisses;
  std::atomic<unsigned int> m_auiEngineMisses;
  std::map<CarriedKey, std::vector<unsigned char>> m_mapCarried;
  std::map<int, size_t> m_mapCarriedCount;
  FaultPlan m_faults;
  std::mt19937 m_rng;
  uint64_t m_ullDropped;
  uint64_t m_ullCorrupted;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_RECEIVER_SIMULATOR_IMPL_H
