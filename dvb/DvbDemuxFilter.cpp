#include "DvbDemuxFilter.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/dvb/dmx.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "DvbLog.h"

namespace Ostrel {

namespace {

// The longest section (private sections may reach 4096 bytes): one page.
const size_t kMaxSection = 4096;

}  // namespace

DvbDemuxFilter::DvbDemuxFilter(const std::string& path, int tunerId, unsigned short pid)
    : m_strPath(path), m_iTunerId(tunerId), m_usPid(pid), m_iFd(-1), m_pBuffer(NULL) {}

DvbDemuxFilter::~DvbDemuxFilter() {
  close();
  std::free(m_pBuffer);
}

void DvbDemuxFilter::close() {
  if (m_iFd >= 0) {
    // The filter stops with its descriptor; a failed close is still closed.
    if (::close(m_iFd) != 0) {
      dvbLog("close: ERROR: %s (tuner %d, PID 0x%04X): %s", m_strPath.c_str(), m_iTunerId, m_usPid,
             std::strerror(errno));
    }
    m_iFd = -1;
  }
}

bool DvbDemuxFilter::fail(const char* call) {
  const int error = errno;
  dvbLog("%s: ERROR: %s (tuner %d, PID 0x%04X): %s", call, m_strPath.c_str(), m_iTunerId, m_usPid,
         std::strerror(error));
  close();
  return false;
}

void DvbDemuxFilter::logHangUp() const {
  dvbLog("poll: ERROR: %s (tuner %d, PID 0x%04X): the device reports an error or hung up",
         m_strPath.c_str(), m_iTunerId, m_usPid);
}

bool DvbDemuxFilter::open(unsigned int bufferSize) {
  // One page on a page boundary: a device that maps the reader's pages for
  // each read (FUSE's direct I/O) maps one, not the two a buffer across a
  // boundary spans.
  if (!m_pBuffer) {
    void* buffer = NULL;
    const int error = posix_memalign(&buffer, kMaxSection, kMaxSection);
    if (error != 0) {
      errno = error;
      return fail("posix_memalign");
    }
    m_pBuffer = static_cast<unsigned char*>(buffer);
  }
  m_iFd = ::open(m_strPath.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (m_iFd < 0) {
    return fail("open");
  }
  // Before the filter: a started filter's buffer cannot be resized.
  if (bufferSize &&
      ioctl(m_iFd, DMX_SET_BUFFER_SIZE, static_cast<unsigned long>(bufferSize)) != 0) {
    return fail("DMX_SET_BUFFER_SIZE");
  }
  struct dmx_sct_filter_params params;
  std::memset(&params, 0, sizeof(params));  // all-zero mask: every section of the PID
  params.pid = m_usPid;
  params.timeout = 0;
  params.flags = DMX_IMMEDIATE_START;
  if (ioctl(m_iFd, DMX_SET_FILTER, &params) != 0) {
    return fail("DMX_SET_FILTER");
  }
  return true;
}

DvbDemuxFilter::ReadResult DvbDemuxFilter::read(std::vector<unsigned char>* section) {
  section->clear();
  if (m_iFd < 0) {
    return kFailed;
  }
  const unsigned char* const buffer = m_pBuffer;
  const ssize_t got = ::read(m_iFd, m_pBuffer, kMaxSection);
  if (got < 0) {
    switch (errno) {
      case EAGAIN:
      case EINTR:
      case ETIMEDOUT:
        return kNothing;
      case EOVERFLOW:
        dvbLog("read: %s (tuner %d, PID 0x%04X): buffer overflow, sections lost", m_strPath.c_str(),
               m_iTunerId, m_usPid);
        return kLost;
      default:
        fail("read");
        return kFailed;
    }
  }
  if (got == 0) {
    dvbLog("read: ERROR: %s (tuner %d, PID 0x%04X): end of file", m_strPath.c_str(), m_iTunerId,
           m_usPid);
    close();
    return kFailed;
  }
  const unsigned int size = static_cast<unsigned int>(got);
  if (size < 3 || 3u + (((buffer[1] & 0x0F) << 8) | buffer[2]) != size) {
    dvbLog("read: %s (tuner %d, PID 0x%04X): a read of %u bytes is not one whole section; dropped",
           m_strPath.c_str(), m_iTunerId, m_usPid, size);
    return kNothing;
  }
  section->assign(buffer, buffer + size);
  return kSection;
}

}  // namespace Ostrel
