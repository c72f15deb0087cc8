#include "DvbFrontend.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/dvb/frontend.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>

#include "DvbLog.h"

namespace Ostrel {

namespace {

unsigned char typeOfSystem(unsigned int system) {
  switch (system) {
    case SYS_ISDBT:
    case SYS_DVBT:
    case SYS_DVBT2:
    case SYS_ATSC:
    case SYS_ATSCMH:
    case SYS_DTMB:
    case SYS_DVBH:
      return DvbFrontend::kTerrestrial;
    case SYS_ISDBS:
    case SYS_DVBS:
    case SYS_DVBS2:
    case SYS_DSS:
    case SYS_TURBO:
      return DvbFrontend::kSatellite;
    case SYS_ISDBC:
    case SYS_DVBC_ANNEX_A:
    case SYS_DVBC_ANNEX_B:
    case SYS_DVBC_ANNEX_C:
      return DvbFrontend::kCable;
    default:
      return DvbFrontend::kUnknown;
  }
}

unsigned char typeOfInfo(fe_type_t type) {
  switch (type) {
    case FE_OFDM:
    case FE_ATSC:
      return DvbFrontend::kTerrestrial;
    case FE_QPSK:
      return DvbFrontend::kSatellite;
    case FE_QAM:
      return DvbFrontend::kCable;
    default:
      return DvbFrontend::kUnknown;
  }
}

// The preferred type among those seen: terrestrial, satellite, cable.
unsigned char better(unsigned char a, unsigned char b) {
  if (a == DvbFrontend::kUnknown) {
    return b;
  }
  return b != DvbFrontend::kUnknown && b < a ? b : a;
}

}  // namespace

bool DvbFrontend::probe(const std::string& path, unsigned char* type, std::string* name) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    dvbLog("open: ERROR: %s: %s", path.c_str(), std::strerror(errno));
    return false;
  }
  struct dvb_frontend_info info;
  std::memset(&info, 0, sizeof(info));
  if (ioctl(fd, FE_GET_INFO, &info) != 0) {
    dvbLog("FE_GET_INFO: ERROR: %s: %s", path.c_str(), std::strerror(errno));
    ::close(fd);
    return false;
  }
  name->assign(info.name, strnlen(info.name, sizeof(info.name)));
  struct dtv_property property;
  std::memset(&property, 0, sizeof(property));
  property.cmd = DTV_ENUM_DELSYS;
  struct dtv_properties properties;
  properties.num = 1;
  properties.props = &property;
  unsigned char found = kUnknown;
  if (ioctl(fd, FE_GET_PROPERTY, &properties) == 0) {
    const unsigned int count = property.u.buffer.len;
    for (unsigned int i = 0; i < count && i < sizeof(property.u.buffer.data); ++i) {
      found = better(found, typeOfSystem(property.u.buffer.data[i]));
    }
  } else {
    dvbLog("FE_GET_PROPERTY: %s: %s; the type comes from FE_GET_INFO", path.c_str(),
           std::strerror(errno));
  }
  if (found == kUnknown) {
    found = typeOfInfo(info.type);
  }
  ::close(fd);
  *type = found;
  return true;
}

}  // namespace Ostrel
