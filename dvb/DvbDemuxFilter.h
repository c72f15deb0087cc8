#ifndef OSTREL_DVB_DEMUX_FILTER_H
#define OSTREL_DVB_DEMUX_FILTER_H

#include <string>
#include <vector>

namespace Ostrel {

// One section filter on a Linux DVB demux device: its own descriptor, opened
// non-blocking, set to the request's PID, the table id in filter byte 0 and,
// where the request key compares it (TSectionMatch), the table id extension
// in bytes 1 and 2; the kernel's CRC check on, no kernel time-out (the server
// keeps the deadlines). Owns the descriptor: closed by the destructor. Every
// failed system call is logged with the device path and the request key.
// Not thread-safe: one thread at a time.
class DvbDemuxFilter {
 public:
  enum ReadResult {
    kSection,  // one whole section read
    kNothing,  // nothing ready (EAGAIN, EINTR) or a kernel time-out
    kLost,     // the demux buffer overflowed: sections were lost, the filter goes on
    kFailed    // the device failed or is gone: the filter is of no further use
  };

  DvbDemuxFilter(const std::string& path, short pid, short tableId, short tableIdExt);
  ~DvbDemuxFilter();

  // Opens, sets the buffer size and the filter, starts it. False (logged, and
  // the descriptor closed) on any failure.
  bool open(unsigned int bufferSize);
  int getFd() const { return m_iFd; }

  // Reads at most one section into *section (cleared first). A section that
  // does not answer the request key (the device's filter ignored a mask) is
  // read and dropped: kNothing.
  ReadResult read(std::vector<unsigned char>* section);

 private:
  DvbDemuxFilter(const DvbDemuxFilter&);
  DvbDemuxFilter& operator=(const DvbDemuxFilter&);

  bool fail(const char* call);
  void close();

  std::string m_strPath;
  short m_sPid;
  short m_sTableId;
  short m_sTableIdExt;
  int m_iFd;
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_DEMUX_FILTER_H
