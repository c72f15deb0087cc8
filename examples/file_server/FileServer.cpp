#include "FileServer.h"

#include <fstream>
#include <iterator>

#include <GingaDataDestination.h>
#include <TDataRequestCommand.h>
#include <TGetTunerListCommand.h>
#include <TGetTunerListResponse.h>
#include <TSectionMatch.h>

namespace {

const size_t kPacketSize = 188;
const unsigned int kPacketsPerWake = 64;
// A new filter passes nothing at first: the core records a request (the follower's add)
// only after send has returned, and a section injected before that finds nobody waiting.
const std::chrono::milliseconds kFilterStart(20);

// CRC-32/MPEG-2 over a whole section, CRC included: 0 when intact.
unsigned long crc32(const unsigned char* data, size_t size) {
  unsigned long crc = 0xFFFFFFFFul;
  for (size_t i = 0; i < size; ++i) {
    crc ^= static_cast<unsigned long>(data[i]) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80000000ul) ? ((crc << 1) ^ 0x04C11DB7ul) : (crc << 1);
      crc &= 0xFFFFFFFFul;
    }
  }
  return crc;
}

bool isLongForm(const std::vector<unsigned char>& s) {
  return (s[1] & 0x80) != 0;
}

}  // namespace

FileServer::FileServer(const std::string& path, unsigned int bitRate)
    : m_uiBitRate(bitRate ? bitRate : 4000000), m_bStop(false) {
  std::ifstream file(path.c_str(), std::ios::binary);
  m_vecStream.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  m_vecStream.resize(m_vecStream.size() - m_vecStream.size() % kPacketSize);
}

FileServer::~FileServer() {
  stop();  // the base deletes the open requests still held
}

void FileServer::start() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_thread.joinable() && isOpen()) {
    m_bStop = false;
    m_thread = std::thread(&FileServer::deliveryLoop, this);
    m_deliveryId = m_thread.get_id();
  }
}

void FileServer::stop() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStop = true;
  }
  m_condStop.notify_all();
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

int FileServer::execute(Ostrel::TCommand* command, Ostrel::TCommand** response) {
  if (Ostrel::TDataRequestCommand* request = dynamic_cast<Ostrel::TDataRequestCommand*>(command)) {
    return openRequest(request);
  }
  if (dynamic_cast<Ostrel::TGetTunerListCommand*>(command) && response) {
    Ostrel::TGetTunerListResponse* list = new Ostrel::TGetTunerListResponse();
    list->addTuner(0, 1);  // one terrestrial tuner
    *response = list;
    return 1;
  }
  return 0;  // synchronous requests, keys, video, status: not in this receiver
}

// On the caller's thread. The command library has already handed the request over
// (adoptOpenRequest); returning 0 makes it close the request at once.
int FileServer::openRequest(Ostrel::TDataRequestCommand* command) {
  if (!command->getOpen() || command->getTunerId() != 0 ||
      static_cast<unsigned short>(command->getPid()) > 0x1FFF) {
    return 0;
  }
  const Clock::time_point now = Clock::now();
  OpenRequest open;
  open.command = command;
  open.deadline = now + std::chrono::seconds(command->getTimeOut());
  std::lock_guard<std::mutex> lock(m_mutex);
  // A request made from a notification runs on the delivery thread: nothing can be
  // delivered before that notification returns, and by then the core has recorded it.
  open.passFrom = std::this_thread::get_id() == m_deliveryId ? now : now + kFilterStart;
  m_vecOpen.push_back(open);
  return 1;
}

void FileServer::deliveryLoop() {
  const std::chrono::nanoseconds perPacket(1504000000000ull / m_uiBitRate);  // 188 * 8 bits
  Clock::time_point next = Clock::now();
  size_t offset = 0;
  std::vector<Section> sections;
  std::vector<Ostrel::TDataRequestCommand*> expired;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(m_mutex);
      if (m_condStop.wait_until(lock, next, [this] { return m_bStop; })) {
        return;
      }
    }
    sections.clear();
    for (unsigned int i = 0; i < kPacketsPerWake; ++i, next += perPacket) {
      readPacket(&m_vecStream[offset], &sections);
      offset = (offset + kPacketSize) % m_vecStream.size();
    }
    const Clock::time_point now = Clock::now();
    for (size_t i = 0; i < sections.size(); ++i) {
      // Each request the section answers: injected under its own key, then closed.
      while (Ostrel::TDataRequestCommand* request = takeMatch(sections[i], now)) {
        if (Ostrel::GingaDataDestination* destination = getDataDestination()) {
          destination->injectData(request->getTunerId(), request->getPid(), request->getTableId(),
                                  request->getTableIdExt(), NULL, &sections[i].bytes[0],
                                  static_cast<unsigned int>(sections[i].bytes.size()));
        }
        closeOpenRequest(request);
      }
    }
    expired.clear();
    takeExpired(now, &expired);
    for (size_t i = 0; i < expired.size(); ++i) {
      closeOpenRequest(expired[i]);
    }
  }
}

// Section reassembly for every PID: a section may start anywhere after the pointer field
// and run over many packets; stuffing (0xFF) ends a packet's sections. Sections with a
// bad CRC are dropped, as a demux with CRC checking does. Continuity is not checked.
void FileServer::readPacket(const unsigned char* packet, std::vector<Section>* sections) {
  const unsigned short pid = static_cast<unsigned short>(((packet[1] & 0x1F) << 8) | packet[2]);
  const bool unitStart = (packet[1] & 0x40) != 0;
  size_t pos = 4;
  if (packet[0] != 0x47 || (packet[1] & 0x80) || pid == 0x1FFF || !(packet[3] & 0x10)) {
    return;  // lost sync, transport error, null packet, no payload
  }
  if (packet[3] & 0x20) {
    pos += 1 + packet[4];  // adaptation field
  }
  std::vector<unsigned char>& buffer = m_mapAssembly[pid];
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
      appendPayload(pid, packet + pos, packet + pos + pointer, &buffer, sections);
    }
    buffer.clear();
    pos += pointer;
  }
  appendPayload(pid, packet + pos, packet + kPacketSize, &buffer, sections);
}

void FileServer::appendPayload(unsigned short pid, const unsigned char* begin,
                               const unsigned char* end, std::vector<unsigned char>* buffer,
                               std::vector<Section>* sections) {
  buffer->insert(buffer->end(), begin, end);
  while (buffer->size() >= 3 && (*buffer)[0] != 0xFF) {
    const size_t length = 3 + ((((*buffer)[1] & 0x0F) << 8) | (*buffer)[2]);
    if (buffer->size() < length) {
      return;
    }
    Section section;
    section.pid = pid;
    section.bytes.assign(buffer->begin(), buffer->begin() + static_cast<long>(length));
    const bool hasCrc = isLongForm(section.bytes) || section.bytes[0] == 0x73;  // TOT
    if (length >= (hasCrc ? 12u : 3u) && (!hasCrc || crc32(&section.bytes[0], length) == 0)) {
      sections->push_back(section);
    }
    buffer->erase(buffer->begin(), buffer->begin() + static_cast<long>(length));
  }
  if (!buffer->empty() && (*buffer)[0] == 0xFF) {
    buffer->clear();  // stuffing: no more sections in this packet
  }
}

Ostrel::TDataRequestCommand* FileServer::takeMatch(const Section& section, Clock::time_point now) {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (size_t i = 0; i < m_vecOpen.size(); ++i) {
    // The command library's rule: PID and table id, and the extension where it is known
    // before the table comes (not for the PAT, CAT, NIT, SDT and short-form sections).
    const Ostrel::TDataRequestCommand* request = m_vecOpen[i].command;
    if (m_vecOpen[i].passFrom <= now &&
        static_cast<unsigned short>(request->getPid()) == section.pid &&
        Ostrel::TSectionMatch::matches(request->getTableId(), request->getTableIdExt(),
                                       &section.bytes[0],
                                       static_cast<unsigned int>(section.bytes.size()))) {
      Ostrel::TDataRequestCommand* taken = m_vecOpen[i].command;
      m_vecOpen.erase(m_vecOpen.begin() + static_cast<long>(i));
      return taken;
    }
  }
  return NULL;
}

void FileServer::takeExpired(Clock::time_point now,
                             std::vector<Ostrel::TDataRequestCommand*>* expired) {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (size_t i = m_vecOpen.size(); i-- > 0;) {
    if (m_vecOpen[i].deadline <= now) {
      expired->push_back(m_vecOpen[i].command);
      m_vecOpen.erase(m_vecOpen.begin() + static_cast<long>(i));
    }
  }
}
