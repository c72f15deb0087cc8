#ifndef OSTREL_DVB_SERVER_H
#define OSTREL_DVB_SERVER_H

#include <string>
#include <vector>

#include "DvbSource.h"
#include "ServerEngine.h"

namespace Ostrel {

// A receiver on the Linux DVB API: the server engine (ServerEngine: open and
// synchronous requests, one filter per tuner and PID shared by every request
// on it, requests waiting for a free filter, CRC checked and counted, the
// delivery thread) over DVB adapters that something else has tuned
// (DvbSource). One tuner per adapter directory given, ids 0, 1, ... in that
// order. Thread-safe as the engine is.
class DvbServer : public ServerEngine {
 public:
  struct Options {
    Options() : bufferSize(64 * 1024), filterLimit(32), filterStartMs(20), syncTimeoutMs(10000) {}
    unsigned int bufferSize;     // DMX_SET_BUFFER_SIZE of each filter; 0 leaves the kernel's
    unsigned int filterLimit;    // filters at once per demux; more requests wait for one
    unsigned int filterStartMs;  // ServerEngine::Options::filterStartMs
    unsigned int syncTimeoutMs;  // how long a synchronous request waits for a section
  };

  // adapters: directories such as /dev/dvb/adapter0, one tuner each.
  DvbServer(const std::vector<std::string>& adapters, const Options& options);
  // Stops the delivery thread, then closes the filters with the source.
  virtual ~DvbServer();

  size_t getTunerCount() const { return static_cast<size_t>(m_source.getTunerCount()); }
  const std::string& getAdapter(int tunerId) const { return m_source.getAdapter(tunerId); }

 private:
  DvbServer(const DvbServer&);
  DvbServer& operator=(const DvbServer&);

  DvbSource m_source;
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_SERVER_H
