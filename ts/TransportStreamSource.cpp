#include "TransportStreamSource.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "TsPacketizer.h"

namespace Ostrel {

namespace {

const size_t kMaxDatagram = 65536;
const int kReceiveBuffer = 4 << 20;
const unsigned char kSyncByte = 0x47;

// The payload of an RTP packet (RFC 3550) in data[0..*size): its offset, with
// *size cut to the end of the payload; 0 when data is not RTP (a datagram of
// plain packets starts with a sync byte).
size_t rtpPayload(const unsigned char* data, size_t* size) {
  if (*size < 12 || data[0] == kSyncByte || (data[0] & 0xC0) != 0x80) {
    return 0;
  }
  size_t header = 12 + 4 * static_cast<size_t>(data[0] & 0x0F);
  if ((data[0] & 0x10) && header + 4 <= *size) {
    header += 4 + 4 * static_cast<size_t>((data[header + 2] << 8) | data[header + 3]);
  }
  size_t end = *size;
  if ((data[0] & 0x20) && end > 0) {
    end -= data[end - 1] < end ? data[end - 1] : end;  // padding
  }
  if (header >= end) {
    *size = 0;
    return 0;
  }
  *size = end;
  return header;
}

bool ipv4(const std::string& text, in_addr* address) {
  if (text.empty()) {
    address->s_addr = htonl(INADDR_ANY);
    return true;
  }
  return inet_pton(AF_INET, text.c_str(), address) == 1;
}

}  // namespace

TransportStreamSource::TransportStreamSource()
    : m_iFd(-1),
      m_bOwnsFd(false),
      m_bDatagrams(false),
      m_bSeekable(false),
      m_bLoop(false),
      m_bMemory(false),
      m_ullSize(0),
      m_ullPosition(0),
      m_ullLoops(0) {}

TransportStreamSource::~TransportStreamSource() {
  if (m_bOwnsFd && m_iFd >= 0) {
    close(m_iFd);
  }
}

std::unique_ptr<TransportStreamSource> TransportStreamSource::openFile(const std::string& path,
                                                                       std::string* error) {
  if (path.compare(0, 6, "udp://") == 0) {
    return openUdp(path, error);
  }
  std::unique_ptr<TransportStreamSource> source(new TransportStreamSource());
  source->m_strName = path;
  if (path == "-") {
    source->m_iFd = STDIN_FILENO;
    source->m_strName = "standard input";
  } else {
    source->m_iFd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (source->m_iFd < 0) {
      if (error) {
        *error = path + ": " + std::strerror(errno);
      }
      return std::unique_ptr<TransportStreamSource>();
    }
    source->m_bOwnsFd = true;
  }
  struct stat info;
  if (fstat(source->m_iFd, &info) == 0) {
    if (S_ISDIR(info.st_mode)) {
      if (error) {
        *error = path + ": " + std::strerror(EISDIR);
      }
      return std::unique_ptr<TransportStreamSource>();
    }
    if (S_ISREG(info.st_mode)) {
      source->m_bSeekable = true;
      source->m_ullSize = static_cast<uint64_t>(info.st_size);
    }
  }
  source->m_bLoop = source->m_bSeekable;
  return source;
}

// udp://[group@]address:port: listens on port at address (any when empty); a
// multicast address is joined on any interface, a group given before '@' on
// the interface that address names.
std::unique_ptr<TransportStreamSource> TransportStreamSource::openUdp(const std::string& url,
                                                                      std::string* error) {
  const std::string location = url.substr(6);
  const size_t colon = location.rfind(':');
  const size_t at = location.find('@');
  const std::string portText = colon == std::string::npos ? "" : location.substr(colon + 1);
  char* end = NULL;
  const long port = std::strtol(portText.c_str(), &end, 10);
  std::string host = location.substr(0, colon == std::string::npos ? 0 : colon);
  std::string group;
  if (at != std::string::npos && at < host.size()) {
    group = host.substr(0, at);
    host = host.substr(at + 1);
  }
  in_addr local, multicast;
  if (portText.empty() || *end != '\0' || port < 0 || port > 65535 || !ipv4(host, &local) ||
      (at != std::string::npos && !group.empty() && !ipv4(group, &multicast))) {
    if (error) {
      *error = url + ": not udp://[group@]address:port (IPv4, port 0 to 65535)";
    }
    return std::unique_ptr<TransportStreamSource>();
  }
  if (group.empty() && IN_MULTICAST(ntohl(local.s_addr))) {
    multicast = local;  // a multicast address alone: joined on any interface
    local.s_addr = htonl(INADDR_ANY);
    group = host;
  }
  std::unique_ptr<TransportStreamSource> source(new TransportStreamSource());
  source->m_strName = url;
  source->m_bDatagrams = true;
  source->m_iFd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  source->m_bOwnsFd = source->m_iFd >= 0;
  const int yes = 1;
  sockaddr_in bound;
  std::memset(&bound, 0, sizeof(bound));
  bound.sin_family = AF_INET;
  bound.sin_port = htons(static_cast<uint16_t>(port));
  bound.sin_addr = group.empty() ? local : multicast;
  bool ok = source->m_iFd >= 0 &&
            setsockopt(source->m_iFd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == 0 &&
            bind(source->m_iFd, reinterpret_cast<sockaddr*>(&bound), sizeof(bound)) == 0;
  if (ok && !group.empty()) {
    ip_mreq membership;
    membership.imr_multiaddr = multicast;
    membership.imr_interface = local;
    ok = setsockopt(source->m_iFd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership,
                    sizeof(membership)) == 0;
  }
  if (!ok) {
    if (error) {
      *error = url + ": " + std::strerror(errno);
    }
    return std::unique_ptr<TransportStreamSource>();
  }
  // A burst must not overflow the socket while the reader paces itself.
  setsockopt(source->m_iFd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(kReceiveBuffer));
  return source;
}

std::unique_ptr<TransportStreamSource> TransportStreamSource::fromMemory(
    std::vector<unsigned char> bytes, const std::string& name) {
  std::unique_ptr<TransportStreamSource> source(new TransportStreamSource());
  source->m_strName = name;
  source->m_vecMemory.swap(bytes);
  source->m_bMemory = true;
  source->m_bSeekable = true;
  source->m_bLoop = true;
  source->m_ullSize = source->m_vecMemory.size();
  return source;
}

TransportStreamSource::ReadResult TransportStreamSource::read(TsPacketizer* packetizer,
                                                              size_t maxBytes, int timeoutMs) {
  if (maxBytes == 0) {
    maxBytes = 1;
  }
  return m_bMemory ? readMemory(packetizer, maxBytes) : readFd(packetizer, maxBytes, timeoutMs);
}

TransportStreamSource::ReadResult TransportStreamSource::atEnd() {
  if (!m_bLoop) {
    return kEnd;
  }
  if (!m_bMemory && lseek(m_iFd, 0, SEEK_SET) == static_cast<off_t>(-1)) {
    m_strError = m_strName + ": " + std::strerror(errno);
    return kError;
  }
  m_ullPosition = 0;
  ++m_ullLoops;
  return kLooped;
}

TransportStreamSource::ReadResult TransportStreamSource::readMemory(TsPacketizer* packetizer,
                                                                    size_t maxBytes) {
  size_t left = m_vecMemory.size() - static_cast<size_t>(m_ullPosition);
  if (left == 0) {
    return atEnd();
  }
  size_t take = left < maxBytes ? left : maxBytes;
  packetizer->push(&m_vecMemory[static_cast<size_t>(m_ullPosition)], take);
  m_ullPosition += take;
  return kData;
}

TransportStreamSource::ReadResult TransportStreamSource::readFd(TsPacketizer* packetizer,
                                                                size_t maxBytes, int timeoutMs) {
  if (!m_bSeekable) {
    struct pollfd waiter;
    waiter.fd = m_iFd;
    waiter.events = POLLIN;
    waiter.revents = 0;
    int ready = poll(&waiter, 1, timeoutMs);
    if (ready == 0 || (ready < 0 && errno == EINTR)) {
      return kNoDataYet;
    }
  }
  size_t capacity = 0;
  if (m_bDatagrams) {
    // One datagram a read: plain packets, or packets in RTP.
    unsigned char* area = packetizer->getWritableArea(kMaxDatagram, &capacity);
    ssize_t got = recv(m_iFd, area, capacity, 0);
    if (got < 0) {
      return errno == EINTR || errno == EAGAIN ? kNoDataYet : readError();
    }
    size_t size = static_cast<size_t>(got);
    const size_t payload = rtpPayload(area, &size);
    std::memmove(area, area + payload, size - payload);
    packetizer->commit(size - payload);
    m_ullPosition += size - payload;
    return kData;
  }
  unsigned char* area = packetizer->getWritableArea(maxBytes, &capacity);
  if (capacity > maxBytes) {
    capacity = maxBytes;
  }
  ssize_t got = ::read(m_iFd, area, capacity);
  if (got > 0) {
    packetizer->commit(static_cast<size_t>(got));
    m_ullPosition += static_cast<uint64_t>(got);
    return kData;
  }
  if (got == 0) {
    return atEnd();
  }
  if (errno == EINTR || errno == EAGAIN) {
    return kNoDataYet;
  }
  return readError();
}

TransportStreamSource::ReadResult TransportStreamSource::readError() {
  m_strError = m_strName + ": " + std::strerror(errno);
  return kError;
}

}  // namespace Ostrel
