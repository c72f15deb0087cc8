#include "DvbDemuxFilter.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/dvb/dmx.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>

#include "DvbLog.h"
#include "TSectionMatch.h"

namespace Ostrel {

namespace {

// The longest section (private sections may reach 4096 bytes).
const size_t kMaxSection = 4096;

}  // namespace

DvbDemuxFilter::DvbDemuxFilter(const std::string& path, short pid, short tableId, short tableIdExt)
    : m_strPath(path), m_sPid(pid), m_sTableId(tableId), m_sTableIdExt(tableIdExt), m_iFd(-1) {}

DvbDemuxFilter::~DvbDemuxFilter() {
  close();
}

void DvbDemuxFilter::close() {
  if (m_iFd >= 0) {
    // The filter stops with its descriptor; a failed close is still closed.
    if (::close(m_iFd) != 0) {
      dvbLog("close: ERROR: %s: %s", m_strPath.c_str(), std::strerror(errno));
    }
    m_iFd = -1;
  }
}

bool DvbDemuxFilter::fail(const char* call) {
  const int error = errno;
  dvbLog("%s: ERROR: %s (PID 0x%04X, table 0x%02X, extension 0x%04X): %s", call, m_strPath.c_str(),
         static_cast<unsigned short>(m_sPid), static_cast<unsigned short>(m_sTableId),
         static_cast<unsigned short>(m_sTableIdExt), std::strerror(error));
  close();
  return false;
}

bool DvbDemuxFilter::open(unsigned int bufferSize) {
  m_iFd = ::open(m_strPath.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (m_iFd < 0) {
    return fail("open");
  }
  if (bufferSize &&
      ioctl(m_iFd, DMX_SET_BUFFER_SIZE, static_cast<unsigned long>(bufferSize)) != 0) {
    return fail("DMX_SET_BUFFER_SIZE");
  }
  struct dmx_sct_filter_params params;
  std::memset(&params, 0, sizeof(params));
  params.pid = static_cast<unsigned short>(m_sPid);
  params.filter.filter[0] = static_cast<unsigned char>(m_sTableId);
  params.filter.mask[0] = 0xFF;
  if (TSectionMatch::isExtensionCompared(m_sTableId)) {
    // Filter bytes skip the two length bytes: 1 and 2 are the extension.
    const unsigned short extension = static_cast<unsigned short>(m_sTableIdExt);
    params.filter.filter[1] = static_cast<unsigned char>(extension >> 8);
    params.filter.filter[2] = static_cast<unsigned char>(extension & 0xFF);
    params.filter.mask[1] = 0xFF;
    params.filter.mask[2] = 0xFF;
  }
  params.timeout = 0;
  params.flags = DMX_CHECK_CRC;
  if (ioctl(m_iFd, DMX_SET_FILTER, &params) != 0) {
    return fail("DMX_SET_FILTER");
  }
  if (ioctl(m_iFd, DMX_START) != 0) {
    return fail("DMX_START");
  }
  return true;
}

DvbDemuxFilter::ReadResult DvbDemuxFilter::read(std::vector<unsigned char>* section) {
  section->clear();
  if (m_iFd < 0) {
    return kFailed;
  }
  unsigned char buffer[kMaxSection];
  const ssize_t got = ::read(m_iFd, buffer, sizeof(buffer));
  if (got < 0) {
    switch (errno) {
      case EAGAIN:
      case EINTR:
      case ETIMEDOUT:
        return kNothing;
      case EOVERFLOW:
        dvbLog("read: %s (PID 0x%04X): buffer overflow, sections lost", m_strPath.c_str(),
               static_cast<unsigned short>(m_sPid));
        return kLost;
      default:
        fail("read");
        return kFailed;
    }
  }
  if (got == 0) {
    dvbLog("read: ERROR: %s (PID 0x%04X): end of file", m_strPath.c_str(),
           static_cast<unsigned short>(m_sPid));
    close();
    return kFailed;
  }
  const unsigned int size = static_cast<unsigned int>(got);
  if (size < 3 || 3u + (((buffer[1] & 0x0F) << 8) | buffer[2]) != size) {
    dvbLog("read: %s (PID 0x%04X): a read of %u bytes is not one whole section; dropped",
           m_strPath.c_str(), static_cast<unsigned short>(m_sPid), size);
    return kNothing;
  }
  if (!TSectionMatch::matches(m_sTableId, m_sTableIdExt, buffer, size)) {
    return kNothing;
  }
  section->assign(buffer, buffer + size);
  return kSection;
}

}  // namespace Ostrel
