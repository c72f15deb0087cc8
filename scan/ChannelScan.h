#ifndef OSTREL_SIM_CHANNEL_SCAN_H
#define OSTREL_SIM_CHANNEL_SCAN_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Ostrel {

class OstrelGingaCommonCore;
class ReceiverSimulator;
class RequestTrace;
class TISDBTTable;

// Scans one tuner through OstrelGingaCommonCore as a middleware does: it asks
// for the PAT, NIT, SDT and TOT at once, asynchronously, and for each PMT as
// soon as the PAT names it; answers arrive through the core's notification
// callback, on whatever thread the core calls it. A request is answered by one
// section: for the PAT, NIT and SDT the scan asks again, from the
// notification, until it holds every section (0 to last_section_number) of
// the current version, and says which tables stayed incomplete. The result is
// the channel table and the outcome of every request with its latency.
//
// The notification callback is process-wide: start() installs
// ChannelScan::notify. Each request carries user data of its own, released by
// the core, that keeps the scan's shared state alive, so a late answer after
// the scan has been destroyed is harmless.
class ChannelScan {
 public:
  enum Outcome { kPending, kDelivered, kFromCache, kTimedOut, kFailed, kNotCarried };

  struct Request {
    unsigned int id = 0;
    std::string what;  // "PAT", "PAT (more)", "PMT 0xE760", ...
    short pid = 0;
    short tableId = 0;
    short tableIdExt = 0;
    Outcome outcome = kPending;
    short errorCode = 0;  // when it failed
    double sentMs = 0;    // since the scan started
    double endedMs = -1;
  };

  struct Stream {
    unsigned char type = 0;
    unsigned short pid = 0;
    int componentTag = -1;  // -1: no stream identifier descriptor
  };

  struct Service {
    unsigned short id = 0;
    bool inPat = false;
    unsigned short pmtPid = 0;
    bool inSdt = false;
    unsigned char type = 0;
    std::string name;
    std::string provider;
    bool partialReception = false;  // one-seg
    Outcome pmt = kPending;
    unsigned char pmtVersion = 0;
    unsigned short pcrPid = 0;
    std::vector<Stream> streams;
  };

  struct Result {
    bool hasPat = false;
    unsigned short transportStreamId = 0;
    unsigned char patVersion = 0;
    bool hasNit = false;
    unsigned short networkId = 0;
    unsigned char nitVersion = 0;
    std::string networkName;
    // From the NIT's entry for this transport stream (by transport stream id
    // and original network id), when there is one.
    std::string tsName;
    int remoteControlKeyId = -1;
    std::vector<unsigned long long> frequenciesHz;
    int transmissionMode = -1;  // 1..3
    int guardInterval = -1;     // 0: 1/32, 1: 1/16, 2: 1/8, 3: 1/4
    bool hasSdt = false;
    unsigned short originalNetworkId = 0;
    unsigned char sdtVersion = 0;
    bool hasTot = false;
    long long utcSeconds = 0;
    bool hasLocalOffset = false;
    int localOffsetSeconds = 0;     // in force at utcSeconds
    std::vector<Service> services;  // PAT order, then services only the SDT lists
    // Tables of which some sections arrived but not all: "SDT: 2 of 5 sections".
    std::vector<std::string> incomplete;
    std::vector<Request> requests;  // in the order sent
  };

  // Where the tuner's input stands, so that requests for tables the stream
  // does not carry end at once instead of at their time-outs. A probe fills it
  // once every delivery of what was played has been made; false: unknown.
  struct Carriage {
    uint64_t played = 0;      // packets played so far, every pass
    uint64_t passLength = 0;  // packets in one pass, once one has ended (0: not yet)
    bool ended = false;       // nothing more will be played
    double settleMs = 0;      // how long a new request takes to see the stream
  };
  typedef std::function<bool(Carriage*)> CarriageProbe;

  // The probe of a simulated tuner: its reader's progress, read before
  // waiting for the deliveries of what it played.
  static CarriageProbe probeOf(ReceiverSimulator* sim, int tunerId);

  // core is not owned; requests go to tunerId. mode is the request mode of
  // the first requests (1: cache, then server; 2: server only); further
  // sections of a table are always asked of the server.
  ChannelScan(OstrelGingaCommonCore* core, int tunerId, signed char mode = 1);
  ~ChannelScan();

  // Optional; not owned; must outlive the scan.
  void setTrace(RequestTrace* trace);
  // Optional; waitFor polls it. A request still open once the stream has
  // played a whole pass (plus a section's length) after the request could
  // see it, or once the input has ended, is taken back and ends as
  // kNotCarried.
  void setCarriageProbe(const CarriageProbe& probe);

  // Sends the requests and waits until each has ended or limit has passed.
  // Returns true when the PAT arrived.
  bool run(std::chrono::milliseconds limit);

  // run() in two steps: start() sends the first requests (once); waitFor()
  // waits at most limit and returns true once every request has ended.
  void start();
  // start() on sim's tuner, as a receiver scan runs: the carriage probe set,
  // the first requests sent, then the tuner started, so that no section of
  // the first round is lost.
  void startOn(ReceiverSimulator* sim);
  bool waitFor(std::chrono::milliseconds limit);

  // Ends every open request as kNotCarried, taking it back from the core.
  void takeBackAll();

  // A copy of what is known so far; any thread.
  Result getResult() const;
  // How many requests have not ended yet.
  unsigned int getPendingCount() const;

  // The core's notification callback for every scan.
  static int notify(unsigned int requestId, unsigned char status, void* userData,
                    TISDBTTable* table);

  static const char* outcomeName(Outcome outcome);

 private:
  struct State;
  struct Ticket;

  ChannelScan(const ChannelScan&);
  ChannelScan& operator=(const ChannelScan&);

  static void releaseTicket(void* ticket);

  std::shared_ptr<State> m_pState;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_CHANNEL_SCAN_H
