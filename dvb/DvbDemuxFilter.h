#ifndef OSTREL_DVB_DEMUX_FILTER_H
#define OSTREL_DVB_DEMUX_FILTER_H

#include <string>
#include <vector>

namespace Ostrel {

// One section filter on a Linux DVB demux device: its own descriptor, opened
// non-blocking, set to one PID with an all-zero mask (every section of the
// PID passes; the server matches them to its requests), no CRC check by the
// kernel (the server checks and counts), no kernel time-out, started at once.
// Owns the descriptor: closed by the destructor. Every failed system call is
// logged with the device path, the tuner and the PID. Each read goes into a
// page of the filter's own, page-aligned, then into the caller's vector. Not
// thread-safe: one thread at a time.
class DvbDemuxFilter {
 public:
  enum ReadResult {
    kSection,  // one whole section read
    kNothing,  // nothing ready (EAGAIN, EINTR, ETIMEDOUT), or a partial read dropped
    kLost,     // the demux buffer overflowed: sections were lost, the filter goes on
    kFailed    // the device failed or is gone: the filter is of no further use
  };

  DvbDemuxFilter(const std::string& path, int tunerId, unsigned short pid);
  ~DvbDemuxFilter();

  // Opens, sets the buffer size (0 leaves the kernel's) and the filter. False
  // (logged, and the descriptor closed) on any failure.
  bool open(unsigned int bufferSize);
  int getFd() const { return m_iFd; }

  // Reads at most one section into *section (cleared first).
  ReadResult read(std::vector<unsigned char>* section);

  // Logs that the device reports an error or hung up (seen by poll).
  void logHangUp() const;

 private:
  DvbDemuxFilter(const DvbDemuxFilter&);
  DvbDemuxFilter& operator=(const DvbDemuxFilter&);

  bool fail(const char* call);
  void close();

  std::string m_strPath;
  int m_iTunerId;
  unsigned short m_usPid;
  int m_iFd;
  unsigned char* m_pBuffer;  // what read reads into: one page, page-aligned, from open on
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_DEMUX_FILTER_H
