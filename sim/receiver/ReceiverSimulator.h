#ifndef OSTREL_SIM_RECEIVER_SIMULATOR_H
#define OSTREL_SIM_RECEIVER_SIMULATOR_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FaultPlan.h"
#include "GingaServer.h"

namespace Ostrel {

class TCommand;

// A receiver in software: a GingaServer whose tuners play transport streams.
//
// Bind it as any server: core->setServer(&sim), and sim.setDataDestination(core)
// so that its sections reach the core.
//
// Every command of the command library is executed. An open data request
// becomes a section filter that lives for the request's time-out, passes each
// distinct matching section to the data destination with injectData under
// the request's own key, and is then closed (closeOpenRequest). A section
// matches when it comes from the request's tuner and PID and has its table
// id; the table id extension is compared too, except for the PAT, CAT, NIT
// and SDT and for short-form sections. A new filter passes nothing during its
// first filterStartMs, as a hardware filter takes a moment to start; this also
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
// Keys: a key held by one listener is refused to another until released.
// Application status changes are recorded in order. Video: one geometry per
// (transport stream, layer), full screen by default, clipped to the screen.
// Tuners: one per input, ids 0, 1, ... in order of addition, listed by the
// tuner-list command.
//
// Thread-safe; never holds a lock of its own while calling out (injectData,
// closeOpenRequest).
class ReceiverSimulator : public GingaServer {
 public:
  static constexpr unsigned char kTerrestrialTuner = 1;

  // How the tuners play their input: as fast as possible, in real time by the
  // stream's PCR (until the first PCR, and for a stream without any, at the
  // bit rate given, else 4 Mbit/s), or at a fixed bit rate.
  enum Pacing { kAsFastAsPossible, kByPcr, kByBitRate };

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

  // Tuners. Each returns the new tuner's id; it plays once start() has been
  // called (at once if it was), paced as setPacing last said.
  //
  // A file, standard input ("-", or any pipe) or udp://[group@]address:port
  // (datagrams of plain packets or of packets in RTP). A file loops at its end
  // when loop is true, as a broadcast carousel repeats. -1, with *error set,
  // when it cannot be opened.
  int addFileTuner(const std::string& path, bool loop, std::string* error);
  // Bytes in memory (name is used in messages), looping when loop is true.
  int addMemoryTuner(std::vector<unsigned char> bytes, const std::string& name, bool loop);
  // A tuner without input, fed by hand with feed().
  int addFedTuner();

  // Pacing of the tuners added from now on; bitRate in bits per second.
  void setPacing(Pacing pacing, uint64_t bitRate);

  // Starts the tuners' readers; stop() stops them. Open filters keep their
  // time-outs either way. A reader starts once the filters open at that
  // moment pass sections, so that none misses the first packet.
  void start();
  void stop();
  // Starts one tuner's reader the same way; false when there is no such
  // tuner, it has no input or it runs already.
  bool startTuner(int tunerId);

  // Feeds bytes to a tuner without input, on the caller's thread.
  bool feed(int tunerId, const unsigned char* data, size_t size);

  // Waits until a tuner's input has ended (a file that does not loop) or
  // failed, or timeout passed; true when it ended.
  bool waitForEnd(int tunerId, std::chrono::milliseconds timeout) const;
  size_t getTunerCount() const;

  // Faults applied from now on, between the filters and the data destination.
  void setFaultPlan(const FaultPlan& plan);

  // Executes command; see the class comment. Any thread.
  virtual int execute(TCommand* command, TCommand** response);

  // Returns once every command in execute on other threads has returned and
  // every delivery queued before the call has been made or discarded. On the
  // delivery thread it does not wait for deliveries.
  virtual void waitBusyCommands();

  Counters getCounters() const;
  unsigned int getFilterStartMs() const;
  size_t getOpenFilterCount() const;
  // The listener holding a key, or "" when it is free.
  std::string getKeyHolder(unsigned int keyCode) const;
  // Every application status change, in order: application id and code.
  std::vector<std::pair<std::string, unsigned char>> getAppStatusChanges() const;

 private:
  class Impl;
  // Gives the simulator's own programs and tests its tuners' internals.
  friend struct SimulatorTuners;

  ReceiverSimulator(const ReceiverSimulator&);
  ReceiverSimulator& operator=(const ReceiverSimulator&);

  std::unique_ptr<Impl> m_pImpl;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_RECEIVER_SIMULATOR_H
