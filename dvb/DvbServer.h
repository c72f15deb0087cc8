#ifndef OSTREL_DVB_SERVER_H
#define OSTREL_DVB_SERVER_H

#include <stdint.h>

#include <bitset>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "GingaServer.h"

namespace Ostrel {

class DvbDemuxFilter;
class TCommand;
class TDataRequestCommand;

// A receiver on the Linux DVB API: a GingaServer whose tuners are DVB
// adapters that something else has tuned (dvbv5-zap, say). One tuner per
// adapter directory given (ADAPTER/frontend0 and ADAPTER/demux0), ids 0, 1,
// ... in that order. Only the device paths given are opened.
//
// An open data request becomes a section filter of its own on the adapter's
// demux (DvbDemuxFilter: PID, table id, extension where the request key
// compares it, CRC checked by the kernel). The delivery thread polls every
// filter, reads one section per read, and delivers each new section to the
// data destination with injectData under the request's own key, one delivery
// at a time, with no lock of the server held; a repetition of a section the
// filter has delivered (same extension, version and section number) is not
// delivered again. The request is closed (closeOpenRequest), its filter and
// descriptor with it, once its table has come: every section from 0 to
// last_section_number of one version (a short-form section is a table by
// itself), or when its time-out (the command's seconds) has passed, or when
// its device fails (logged). The core answers a request with one section; the
// next sections reach a request that the middleware sends from the
// notification, since the next delivery waits until the notification has
// returned. A filter opened from another thread than the delivery thread
// holds back what it reads for filterStartMs, so that the sender records its
// request before the answer comes; one opened from a notification on the
// delivery thread passes at once.
//
// A synchronous request (0x601, or 0x600 without the open flag) opens a
// filter, waits on the caller's thread for one section, at most
// syncTimeoutMs (or the command's time-out when it has one), injects it on
// that thread before execute returns, and fails when none comes.
//
// The tuner list (0x500) reads each adapter's frontend (DvbFrontend); an
// adapter whose frontend cannot be read is left out, and the command fails
// when no adapter answers. Keys (0x209, 0x210), application status (0x300)
// and video (0x400 to 0x404) need devices a DVB adapter does not have: they
// are refused (execute returns 0, logged).
//
// Every failed system call is logged (module "DvbServer") and fails its
// command or ends its request; nothing is retried. Thread-safe; the server's
// own lock guards the filters and counters and is never held while calling
// out or waiting on a device.
class DvbServer : public GingaServer {
 public:
  typedef std::chrono::steady_clock Clock;

  struct Options {
    Options() : bufferSize(64 * 1024), filterStartMs(20), syncTimeoutMs(10000) {}
    unsigned int bufferSize;     // DMX_SET_BUFFER_SIZE of each filter; 0 leaves the kernel's
    unsigned int filterStartMs;  // see the class comment
    unsigned int syncTimeoutMs;  // bound of a synchronous request without a time-out
  };

  struct Counters {
    Counters()
        : filtersOpened(0),
          deliveries(0),
          completed(0),
          timedOut(0),
          failed(0),
          syncAnswered(0),
          syncRefused(0),
          commandsRefused(0) {}
    uint64_t filtersOpened;  // open requests that got a filter
    uint64_t deliveries;     // sections injected for open requests
    uint64_t completed;      // open requests closed once their table had come
    uint64_t timedOut;       // open requests closed at their time-out (or at shutdown)
    uint64_t failed;         // open requests closed because their device failed
    uint64_t syncAnswered;
    uint64_t syncRefused;
    uint64_t commandsRefused;  // execute returned 0
  };

  // adapters: directories such as /dev/dvb/adapter0, one tuner each.
  DvbServer(const std::vector<std::string>& adapters, const Options& options);
  virtual ~DvbServer();

  // Executes command; see the class comment. Any thread.
  virtual int execute(TCommand* command, TCommand** response);

  // Returns once every execute running on another thread has returned and no
  // delivery is being made (on the delivery thread: once the other executes
  // have returned).
  virtual void waitBusyCommands();

  size_t getTunerCount() const { return m_vecAdapters.size(); }
  const std::string& getAdapter(int tunerId) const { return m_vecAdapters[tunerId]; }
  size_t getOpenFilterCount() const;
  Counters getCounters() const;

 private:
  struct OpenFilter {
    TDataRequestCommand* command;
    int tunerId;
    short pid;
    short tableId;
    short tableIdExt;
    std::unique_ptr<DvbDemuxFilter> filter;  // used unlocked by the delivery thread only
    Clock::time_point passFrom;
    Clock::time_point deadline;
    bool held;    // section holds a new section, to be delivered from passFrom on
    bool failed;  // the device failed
    std::vector<unsigned char> section;
    // The table being gathered: extension, version, last section number and
    // the section numbers delivered; whole at once for a short-form section.
    bool tracking;
    bool shortForm;
    unsigned short extension;
    unsigned char version;
    unsigned char lastSection;
    std::bitset<256> delivered;
  };
  // One call-out of the delivery thread: a section to inject under a key,
  // and/or a request to close with its filter.
  struct CallOut {
    int tunerId;
    short pid;
    short tableId;
    short tableIdExt;
    std::vector<unsigned char> section;  // empty: nothing to inject
    TDataRequestCommand* close;          // null: the request stays open
    std::unique_ptr<DvbDemuxFilter> filter;
  };

  DvbServer(const DvbServer&);
  DvbServer& operator=(const DvbServer&);

  int executeOpenRequest(TDataRequestCommand* request);
  int executeSyncRequest(int tunerId, short pid, short tableId, short tableIdExt,
                         unsigned int timeOutMs);
  int executeTunerList(TCommand** response);
  bool isValidKey(const char* what, int tunerId, short pid) const;
  std::string demuxPath(int tunerId) const;

  void deliveryLoop();
  void wake();
  // REQUIRES: m_mutex held. Takes the due deliveries and the filters that are
  // done at now.
  void __takeDue(Clock::time_point now, std::vector<CallOut>* calls);
  // With no lock held: closes filters, delivers, closes requests.
  void callOut(std::vector<CallOut>* calls);
  // Whether section is new to open's table (and records it).
  static bool accept(OpenFilter* open, const std::vector<unsigned char>& section);
  static bool isComplete(const OpenFilter& open);

  const std::vector<std::string> m_vecAdapters;
  const Options m_options;

  mutable std::mutex m_mutex;
  std::condition_variable m_condIdle;  // wakes waitBusyCommands
  bool m_bShutdown;
  bool m_bCallingOut;
  int m_iExecuting;
  int m_iWakeFd;  // eventfd that interrupts the delivery thread's poll
  std::map<uint64_t, OpenFilter> m_mapFilters;
  uint64_t m_ullNextFilterId;
  Counters m_counters;
  std::thread::id m_deliveryThreadId;
  // Nesting of execute on this thread: a callback run by a synchronous answer
  // may call waitBusyCommands, which must not wait for its own thread.
  static thread_local int s_iExecuteDepth;
  std::thread m_deliveryThread;
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_SERVER_H
