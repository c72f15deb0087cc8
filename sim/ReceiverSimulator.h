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
#include "ServerEngine.h"

namespace Ostrel {

class TCommand;

// A receiver in software: a ServerEngine whose source is tuners that play
// transport streams.
//
// Bind it as any server: core->setServer(&sim), and sim.setDataDestination(core)
// so that its sections reach the core.
//
// Data requests, the tuner list and their timing are the engine's (see
// ServerEngine): one gatherer per request key, each new section of its table
// injected once under the key. A tuner's reader queues what it reassembles
// in stream order, and the engine decides whether a filter wants a section
// only when it takes it, so playing as fast as possible loses no section that
// a notification asks for next. A synchronous request is answered at once, on
// the caller's thread, from the sections the stream has already carried; it
// fails when there are none.
//
// Keys: a key held by one listener is refused to another until released.
// Application status changes are recorded in order. Video: one geometry per
// (transport stream, layer), full screen by default, clipped to the screen.
// Tuners: one per input, ids 0, 1, ... in order of addition, listed by the
// tuner-list command.
//
// Thread-safe; never holds a lock of its own while calling out (injectData,
// closeOpenRequest).
class ReceiverSimulator : public ServerEngine {
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

  // Sections the fault plan dropped and damaged.
  struct FaultCounts {
    uint64_t dropped = 0;
    uint64_t corrupted = 0;
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

  // Feeds bytes to a tuner without input, on the caller's thread, once the
  // filters of the requests executed so far are open; returns once the
  // engine has dealt with the sections they carried (those a delay fault
  // holds back aside). Not from a notification.
  bool feed(int tunerId, const unsigned char* data, size_t size);

  // Waits until a tuner's input has ended (a file that does not loop) or
  // failed, or timeout passed; true when it ended.
  bool waitForEnd(int tunerId, std::chrono::milliseconds timeout) const;
  // Returns once the engine has dealt with every section the tuners handed
  // over so far (its injections made), or timeout passed; false then.
  bool waitDelivered(std::chrono::milliseconds timeout);

  size_t getTunerCount() const;

  // Faults applied from now on, between the filters and the data destination.
  void setFaultPlan(const FaultPlan& plan);

  FaultCounts getFaultCounts() const;
  unsigned int getFilterStartMs() const;
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

  std::unique_ptr<Impl> m_pImpl;  // the engine's source
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_RECEIVER_SIMULATOR_H
