#include "TransportStreamSource.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "TsPacketizer.h"

namespace Ostrel {

TransportStreamSource::TransportStreamSource()
    : m_iFd(-1),
      m_bOwnsFd(false),
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
  m_strError = m_strName + ": " + std::strerror(errno);
  return kError;
}

}  // namespace Ostrel
