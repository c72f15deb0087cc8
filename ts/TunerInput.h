#ifndef OSTREL_SIM_TUNER_INPUT_H
#define OSTREL_SIM_TUNER_INPUT_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "SectionDemux.h"
#include "StreamHealth.h"
#include "StreamPacer.h"
#include "TsPacketSink.h"
#include "TsPacketizer.h"

namespace Ostrel {

class SectionSink;
class TransportStreamSource;

// One tuner of the simulated receiver: a source of bytes, cut into packets,
// paced, and demultiplexed into sections on a reader thread of its own. A
// tuner without a source is fed by hand with feed() on the caller's thread.
class TunerInput : private TsPacketSink {
 public:
  // What the reader has done so far; a consistent copy.
  struct Progress {
    uint64_t position = 0;  // bytes read in the current pass
    uint64_t size = 0;      // input size, 0 when unknown
    uint64_t loops = 0;
    uint64_t packets = 0;      // packets played, every pass
    uint64_t passPackets = 0;  // packets in one whole pass, once one has ended
    bool ended = false;        // the input ended or failed; no more sections come
    std::string error;         // why it failed, when it did
    TsPacketizer::Statistics packetizer;
    SectionDemux::Statistics demux;
  };

  // source may be null; sink (not owned) gets every section with tunerId.
  TunerInput(int tunerId, unsigned char type, std::unique_ptr<TransportStreamSource> source,
             SectionSink* sink);
  ~TunerInput();

  int getTunerId() const { return m_iTunerId; }
  unsigned char getType() const { return m_ucType; }
  const std::string& getName() const { return m_strName; }
  SectionDemux* getDemux() { return &m_demux; }

  // Before start only.
  void setPacing(StreamPacer::Mode mode, uint64_t bitRate);

  // Starts the reader thread; false when there is no source or it runs already.
  bool start();
  // Stops and joins the reader; safe to call more than once.
  void stop();

  // Feeds bytes by hand (a tuner without source); finishFeed marks the end of
  // the input. Not thread-safe against each other.
  void feed(const unsigned char* data, size_t size);
  void finishFeed();

  Progress getProgress() const;
  // The health of what was played so far (every pass), in stream time. Any thread.
  StreamHealth getHealth() const { return m_health.snapshot(); }

  // Waits until the input ended or timeout passed; true when it ended.
  bool waitForEnd(std::chrono::milliseconds timeout) const;

  // Called once the input has ended or failed (getProgress says so already),
  // on the reader's thread with no lock held; replaces the one set before.
  // Lets a waiter that polls the progress learn of the end at once.
  void setEndListener(const std::function<void()>& listener);

 private:
  TunerInput(const TunerInput&);
  TunerInput& operator=(const TunerInput&);

  void onPackets(const unsigned char* first, unsigned int count, unsigned int stride);
  void run();
  void publish(bool ended, const std::string& error);

  const int m_iTunerId;
  const unsigned char m_ucType;
  std::string m_strName;
  std::unique_ptr<TransportStreamSource> m_pSource;
  TsPacketizer m_packetizer;
  SectionDemux m_demux;
  StreamHealthMeter m_health;
  StreamPacer m_pacer;
  std::thread m_thread;

  // Guards the fields below; the reader never holds it while demultiplexing.
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_cond;
  bool m_bStop;
  Progress m_progress;
  std::function<void()> m_endListener;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_TUNER_INPUT_H
