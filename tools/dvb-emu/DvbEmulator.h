#ifndef OSTREL_DVB_EMULATOR_H
#define OSTREL_DVB_EMULATOR_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct fuse_session;

namespace Ostrel {

// A fault played by the emulated adapters (all of them, or the one named).
struct DvbFault {
  enum Kind { kRefuseFilter, kReadError, kCrc, kRemove };
  Kind kind = kRefuseFilter;
  int adapter = -1;     // -1: every adapter
  double value = -1.0;  // refuse-filter: the PID (-1 any); read-error: sections
                        // before the first EIO; crc: share damaged; remove: seconds
};

struct DvbEmuOptions {
  std::string root;
  std::vector<std::string> adapters;  // one transport-stream file each
  uint64_t bitRate = 4000000;         // pacing, bits per second
  bool fast = false;                  // as fast as readers take sections
  bool once = false;                  // each file played once, then silence
  unsigned int startWith = 1;         // --fast: filters started before the stream plays
  unsigned int filters = 32;          // open demux handles per adapter
  uint32_t frequency = 0;             // reported by the frontend, Hz
  unsigned int seed = 1;
  std::vector<DvbFault> faults;
  bool verbose = false;
};

// Linux DVB adapters (adapterN/demux0, adapterN/frontend0, adapterN/dvr0)
// served over FUSE's low-level API from transport-stream files: section and
// PES filters as the kernel's dmxdev gives them, and a frontend that is
// always locked.
class DvbEmulator {
 public:
  explicit DvbEmulator(const DvbEmuOptions& options);
  ~DvbEmulator();

  // Checks the stream files and mounts; false with a message on failure.
  bool mount(std::string* error);
  // Plays the streams and serves requests until SIGINT/SIGTERM, then unmounts.
  int run();

  struct Adapter;
  struct Handle;
  struct DemuxHandle;

 private:
  friend struct DvbEmuOps;

  void pump(Adapter* adapter);
  void onSection(Adapter* adapter, unsigned short pid, const unsigned char* data,
                 unsigned int size);
  void onPackets(Adapter* adapter, const unsigned char* first, unsigned int count,
                 unsigned int stride);
  void deliver(DemuxHandle* handle, const unsigned char* data, unsigned int size);
  void serve(DemuxHandle* handle);
  void wake(DemuxHandle* handle);
  void removeAdapter(Adapter* adapter);
  void startFilter(DemuxHandle* handle);
  void stopFilter(DemuxHandle* handle);
  bool hasRoom(const DemuxHandle* handle, unsigned int size) const;

  DvbEmuOptions m_options;
  std::vector<std::unique_ptr<Adapter>> m_vecAdapters;
  struct fuse_session* m_pSession = nullptr;
  bool m_bMounted = false;
  bool m_bStopping = false;
  std::mutex m_mutex;
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_EMULATOR_H
