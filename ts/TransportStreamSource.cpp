#include "TransportStreamSource.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "TsPacketizer.h"

namespace Ostrel {

namespace {

const size_t kMaxDatagram = 65536;
const int kReceiveBuffer = 4 << 20;
const unsigned char kSyncByte = 0x47;

typedef std::unique_ptr<TransportStreamSource> SourcePtr;

// Sets *error (when asked for) and returns no source.
SourcePtr refuse(std::string* error, const std::string& message) {
  if (error) {
    *error = message;
  }
  return SourcePtr();
}

// Waits at most timeoutMs for fd to become readable; false when it did not.
bool waitReadable(int fd, int timeoutMs) {
  struct pollfd waiter;
  waiter.fd = fd;
  waiter.events = POLLIN;
  waiter.revents = 0;
  const int ready = poll(&waiter, 1, timeoutMs);
  return !(ready == 0 || (ready < 0 && errno == EINTR));
}

// The payload of an RTP packet (RFC 3550) in data[0..*size): its offset past
// the fixed header, the CSRCs and the extension, with *size cut to the end of
// the payload (before any padding); false when data is not RTP version 2 or
// carries no payload.
bool rtpPayload(const unsigned char* data, size_t* size, size_t* offset) {
  if (*size < 12 || (data[0] & 0xC0) != 0x80) {
    return false;
  }
  size_t header = 12 + 4 * static_cast<size_t>(data[0] & 0x0F);
  if ((data[0] & 0x10) && header + 4 <= *size) {
    header += 4 + 4 * static_cast<size_t>((data[header + 2] << 8) | data[header + 3]);
  }
  size_t end = *size;
  if (data[0] & 0x20) {
    end -= data[end - 1] < end ? data[end - 1] : end;  // padding
  }
  if (header >= end) {
    return false;
  }
  *offset = header;
  *size = end;
  return true;
}

bool ipv4(const std::string& text, in_addr* address) {
  if (text.empty()) {
    address->s_addr = htonl(INADDR_ANY);
    return true;
  }
  return inet_pton(AF_INET, text.c_str(), address) == 1;
}

// A file or standard input; a regular file is seekable and can loop.
class FileSource : public TransportStreamSource {
 public:
  FileSource(const std::string& name, int fd, bool ownsFd, bool seekable, uint64_t size)
      : TransportStreamSource(name, false, seekable, size), m_iFd(fd), m_bOwnsFd(ownsFd) {}
  ~FileSource() {
    if (m_bOwnsFd) {
      close(m_iFd);
    }
  }

 protected:
  ReadResult readSome(TsPacketizer* packetizer, size_t maxBytes, int timeoutMs,
                      size_t* got) override {
    if (!isSeekable() && !waitReadable(m_iFd, timeoutMs)) {
      return kNoDataYet;
    }
    size_t capacity = 0;
    unsigned char* area = packetizer->getWritableArea(maxBytes, &capacity);
    if (capacity > maxBytes) {
      capacity = maxBytes;
    }
    const ssize_t n = ::read(m_iFd, area, capacity);
    if (n > 0) {
      packetizer->commit(static_cast<size_t>(n));
      *got = static_cast<size_t>(n);
      return kData;
    }
    if (n == 0) {
      return kEnd;
    }
    return errno == EINTR || errno == EAGAIN ? kNoDataYet : fail();
  }
  bool rewind() override { return lseek(m_iFd, 0, SEEK_SET) != static_cast<off_t>(-1); }

 private:
  int m_iFd;
  bool m_bOwnsFd;
};

// A UDP socket, one datagram a read. kPlainOrRtp (udp://) takes plain
// packets, or RTP recognised by its version bits; kRtp (rtp://) takes RTP only
// and drops any other datagram.
class DatagramSource : public TransportStreamSource {
 public:
  enum Framing { kPlainOrRtp, kRtp };

  DatagramSource(const std::string& name, int fd, Framing framing)
      : TransportStreamSource(name, true, false, 0), m_iFd(fd), m_eFraming(framing) {}
  ~DatagramSource() { close(m_iFd); }

 protected:
  ReadResult readSome(TsPacketizer* packetizer, size_t, int timeoutMs, size_t* got) override {
    if (!waitReadable(m_iFd, timeoutMs)) {
      return kNoDataYet;
    }
    size_t capacity = 0;
    unsigned char* area = packetizer->getWritableArea(kMaxDatagram, &capacity);
    const ssize_t n = recv(m_iFd, area, capacity, 0);
    if (n < 0) {
      return errno == EINTR || errno == EAGAIN ? kNoDataYet : fail();
    }
    size_t size = static_cast<size_t>(n);
    size_t payload = 0;
    const bool rtp = size >= 12 && area[0] != kSyncByte && (area[0] & 0xC0) == 0x80;
    if ((rtp || m_eFraming == kRtp) && !rtpPayload(area, &size, &payload)) {
      size = 0;  // not RTP where RTP is required, or RTP without a payload
    }
    std::memmove(area, area + payload, size - payload);
    packetizer->commit(size - payload);
    *got = size - payload;
    return kData;
  }

 private:
  int m_iFd;
  Framing m_eFraming;
};

// A buffer in memory; it can loop.
class MemorySource : public TransportStreamSource {
 public:
  MemorySource(std::vector<unsigned char> bytes, const std::string& name)
      : TransportStreamSource(name, false, true, bytes.size()),
        m_vecBytes(std::move(bytes)),
        m_uAt(0) {}

 protected:
  ReadResult readSome(TsPacketizer* packetizer, size_t maxBytes, int, size_t* got) override {
    const size_t left = m_vecBytes.size() - m_uAt;
    if (left == 0) {
      return kEnd;
    }
    const size_t take = left < maxBytes ? left : maxBytes;
    packetizer->push(&m_vecBytes[m_uAt], take);
    m_uAt += take;
    *got = take;
    return kData;
  }
  bool rewind() override {
    m_uAt = 0;
    return true;
  }

 private:
  std::vector<unsigned char> m_vecBytes;
  size_t m_uAt;
};

// A path, or "-" for standard input.
SourcePtr openPath(const std::string& path, std::string* error) {
  if (path == "-") {
    return SourcePtr(new FileSource("standard input", STDIN_FILENO, false, false, 0));
  }
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return refuse(error, path + ": " + std::strerror(errno));
  }
  struct stat info;
  const bool known = fstat(fd, &info) == 0;
  if (known && S_ISDIR(info.st_mode)) {
    close(fd);
    return refuse(error, path + ": " + std::strerror(EISDIR));
  }
  const bool regular = known && S_ISREG(info.st_mode);
  return SourcePtr(
      new FileSource(path, fd, true, regular, regular ? static_cast<uint64_t>(info.st_size) : 0));
}

// scheme://[group@]address:port: a socket listening on port at address (any
// when empty); a multicast address is joined on any interface, a group given
// before '@' on the interface that address names. Null, with *error set, when
// the address is malformed or the socket cannot be set up.
SourcePtr openSocket(const std::string& url, const std::string& scheme, std::string* error,
                     DatagramSource::Framing framing) {
  const std::string location = url.substr(scheme.size());
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
    return refuse(error, url + ": not " + scheme + "[group@]address:port (IPv4, port 0 to 65535)");
  }
  if (group.empty() && IN_MULTICAST(ntohl(local.s_addr))) {
    multicast = local;  // a multicast address alone: joined on any interface
    local.s_addr = htonl(INADDR_ANY);
    group = host;
  }
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    return refuse(error, url + ": " + std::strerror(errno));
  }
  SourcePtr source(new DatagramSource(url, fd, framing));  // closes fd from here on
  const int yes = 1;
  sockaddr_in bound;
  std::memset(&bound, 0, sizeof(bound));
  bound.sin_family = AF_INET;
  bound.sin_port = htons(static_cast<uint16_t>(port));
  bound.sin_addr = group.empty() ? local : multicast;
  bool ok = setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == 0 &&
            bind(fd, reinterpret_cast<sockaddr*>(&bound), sizeof(bound)) == 0;
  if (ok && !group.empty()) {
    ip_mreq membership;
    membership.imr_multiaddr = multicast;
    membership.imr_interface = local;
    ok = setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) == 0;
  }
  if (!ok) {
    return refuse(error, url + ": " + std::strerror(errno));
  }
  // A burst must not overflow the socket while the reader paces itself.
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(kReceiveBuffer));
  return source;
}

SourcePtr openUdp(const std::string& url, std::string* error) {
  return openSocket(url, "udp://", error, DatagramSource::kPlainOrRtp);
}

SourcePtr openRtp(const std::string& url, std::string* error) {
  return openSocket(url, "rtp://", error, DatagramSource::kRtp);
}

// The inputs by scheme; an input without a scheme is a path.
struct Scheme {
  const char* prefix;
  SourcePtr (*open)(const std::string& url, std::string* error);
};
const Scheme kSchemes[] = {{"udp://", openUdp}, {"rtp://", openRtp}};

// Whether input starts with a URL scheme (a letter, then letters, digits, '+',
// '-' or '.', then "://"); a path such as "./a://b" does not.
bool hasScheme(const std::string& input) {
  const size_t mark = input.find("://");
  if (mark == std::string::npos || mark == 0 ||
      !std::isalpha(static_cast<unsigned char>(input[0]))) {
    return false;
  }
  for (size_t i = 1; i < mark; ++i) {
    const unsigned char c = static_cast<unsigned char>(input[i]);
    if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') {
      return false;
    }
  }
  return true;
}

}  // namespace

TransportStreamSource::TransportStreamSource(const std::string& name, bool datagrams, bool seekable,
                                             uint64_t size)
    : m_strName(name),
      m_bDatagrams(datagrams),
      m_bSeekable(seekable),
      m_bLoop(seekable),
      m_ullSize(size),
      m_ullPosition(0),
      m_ullLoops(0) {}

TransportStreamSource::~TransportStreamSource() {}

std::unique_ptr<TransportStreamSource> TransportStreamSource::openFile(const std::string& path,
                                                                       std::string* error) {
  for (const Scheme& scheme : kSchemes) {
    if (path.compare(0, std::strlen(scheme.prefix), scheme.prefix) == 0) {
      return scheme.open(path, error);
    }
  }
  if (hasScheme(path)) {
    return refuse(error, path + ": unknown input scheme (file, udp://, rtp://)");
  }
  return openPath(path, error);
}

std::unique_ptr<TransportStreamSource> TransportStreamSource::fromMemory(
    std::vector<unsigned char> bytes, const std::string& name) {
  return SourcePtr(new MemorySource(std::move(bytes), name));
}

TransportStreamSource::ReadResult TransportStreamSource::read(TsPacketizer* packetizer,
                                                              size_t maxBytes, int timeoutMs) {
  size_t got = 0;
  const ReadResult result = readSome(packetizer, maxBytes == 0 ? 1 : maxBytes, timeoutMs, &got);
  m_ullPosition += got;
  if (result != kEnd || !m_bLoop) {
    return result;
  }
  if (!rewind()) {
    return fail();
  }
  m_ullPosition = 0;
  ++m_ullLoops;
  return kLooped;
}

TransportStreamSource::ReadResult TransportStreamSource::fail() {
  m_strError = m_strName + ": " + std::strerror(errno);
  return kError;
}

}  // namespace Ostrel
