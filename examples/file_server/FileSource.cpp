#include "FileSource.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace {

const size_t kPacketSize = 188;
// Packets gather this long before they are read, as in a demux's buffer: the
// delivery thread wakes a hundred times a second, not once a packet.
const std::chrono::milliseconds kGather(10);

}  // namespace

FileSource::FileSource(const std::string& path, unsigned int bitRate)
    : m_packetTime(kPacketSize * 8 * 1000000000ull / (bitRate ? bitRate : 4000000)),
      m_uiPacket(0),
      m_bInterrupted(false) {
  std::ifstream file(path.c_str(), std::ios::binary);
  m_vecStream.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  m_vecStream.resize(m_vecStream.size() - m_vecStream.size() % kPacketSize);
}

bool FileSource::getTuners(std::vector<Tuner>* tuners) {
  const Tuner terrestrial = {0, 1};
  tuners->push_back(terrestrial);
  return true;
}

// ---- On the engine's delivery thread ----

bool FileSource::openFilter(int tunerId, unsigned short pid) {
  if (tunerId != 0) {
    return false;
  }
  m_mapFilters[pid].clear();  // reassembly starts at the PID's next section
  return true;
}

void FileSource::closeFilter(int tunerId, unsigned short pid) {
  (void)tunerId;
  m_mapFilters.erase(pid);
  for (std::deque<Section>::iterator it = m_dequeReady.begin(); it != m_dequeReady.end();) {
    it = it->pid == pid ? m_dequeReady.erase(it) : it + 1;
  }
}

FileSource::ReadResult FileSource::readSection(int timeoutMs, Section* section) {
  const Clock::time_point start = Clock::now();
  const Clock::time_point limit =
      timeoutMs < 0 ? Clock::time_point::max() : start + std::chrono::milliseconds(timeoutMs);
  if (m_nextDue == Clock::time_point()) {
    m_nextDue = start;  // the file starts playing at the first read
  }
  std::unique_lock<std::mutex> lock(m_mutex);
  for (;;) {
    if (m_bInterrupted) {
      m_bInterrupted = false;
      return kNothing;
    }
    // Every packet due by now, until one completes a section.
    const Clock::time_point now = Clock::now();
    while (m_dequeReady.empty() && m_nextDue <= now) {
      readPacket(&m_vecStream[m_uiPacket * kPacketSize]);
      m_nextDue += m_packetTime;
      if (++m_uiPacket * kPacketSize == m_vecStream.size()) {
        m_uiPacket = 0;  // the loop: no section runs over the file's end
        for (std::map<unsigned short, std::vector<unsigned char>>::iterator it =
                 m_mapFilters.begin();
             it != m_mapFilters.end(); ++it) {
          it->second.clear();
        }
      }
    }
    if (!m_dequeReady.empty()) {
      *section = m_dequeReady.front();
      m_dequeReady.pop_front();
      return kSection;
    }
    if (now >= limit) {
      return kNothing;
    }
    m_condInterrupt.wait_until(lock, std::min(m_nextDue + kGather, limit));
  }
}

// Reassembly: a section may start anywhere after the pointer field and run over
// many packets, a packet may carry several, and stuffing (0xFF) ends a packet's
// sections. Continuity counters are not checked: a section spoilt by a lost
// packet fails the engine's CRC check.
void FileSource::readPacket(const unsigned char* packet) {
  const unsigned short pid = static_cast<unsigned short>(((packet[1] & 0x1F) << 8) | packet[2]);
  std::map<unsigned short, std::vector<unsigned char>>::iterator filter = m_mapFilters.find(pid);
  if (filter == m_mapFilters.end() || packet[0] != 0x47 || (packet[1] & 0x80) ||
      !(packet[3] & 0x10)) {
    return;  // not filtered, lost sync, transport error, no payload
  }
  std::vector<unsigned char>& buffer = filter->second;
  const bool unitStart = (packet[1] & 0x40) != 0;
  size_t pos = (packet[3] & 0x20) ? 5 + packet[4] : 4;  // after the adaptation field
  if (pos >= kPacketSize || (!unitStart && buffer.empty())) {
    return;
  }
  if (unitStart) {
    const size_t pointer = packet[pos++];  // the tail of the section in progress comes first
    if (pos + pointer > kPacketSize) {
      buffer.clear();
      return;
    }
    if (!buffer.empty()) {
      appendPayload(pid, packet + pos, packet + pos + pointer, &buffer);
    }
    buffer.clear();
    pos += pointer;
  }
  appendPayload(pid, packet + pos, packet + kPacketSize, &buffer);
}

void FileSource::appendPayload(unsigned short pid, const unsigned char* begin,
                               const unsigned char* end, std::vector<unsigned char>* buffer) {
  buffer->insert(buffer->end(), begin, end);
  while (buffer->size() >= 3 && (*buffer)[0] != 0xFF) {
    const size_t length = 3 + ((((*buffer)[1] & 0x0F) << 8) | (*buffer)[2]);
    if (buffer->size() < length) {
      return;  // the rest comes in the PID's next packets
    }
    Section section;
    section.tunerId = 0;
    section.pid = pid;
    section.data.assign(buffer->begin(), buffer->begin() + static_cast<long>(length));
    m_dequeReady.push_back(section);
    buffer->erase(buffer->begin(), buffer->begin() + static_cast<long>(length));
  }
  if (!buffer->empty() && (*buffer)[0] == 0xFF) {
    buffer->clear();  // stuffing: no more sections in this packet
  }
}

// ---- Any thread ----

void FileSource::interrupt() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bInterrupted = true;
  }
  m_condInterrupt.notify_all();
}
