#include "TunerInput.h"

#include "TransportStreamSource.h"

namespace Ostrel {

namespace {
// Smaller reads when pacing keep the clock fine-grained.
const size_t kFastChunk = 256 * 1024;
const size_t kPacedChunk = 64 * 188;
const int kPipeWaitMs = 100;
}  // namespace

TunerInput::TunerInput(int tunerId, unsigned char type,
                       std::unique_ptr<TransportStreamSource> source, SectionSink* sink)
    : m_iTunerId(tunerId),
      m_ucType(type),
      m_pSource(std::move(source)),
      m_demux(tunerId, sink),
      m_bStop(false) {
  m_strName = m_pSource ? m_pSource->getName() : std::string("fed by hand");
  if (m_pSource) {
    m_progress.size = m_pSource->getSize();
  }
}

TunerInput::~TunerInput() {
  stop();
}

void TunerInput::setPacing(StreamPacer::Mode mode, uint64_t bitRate) {
  m_pacer.setMode(mode, bitRate);
  m_health.setBitRate(bitRate);
}

bool TunerInput::start() {
  if (!m_pSource || m_thread.joinable()) {
    return false;
  }
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStop = false;
  }
  m_thread = std::thread(&TunerInput::run, this);
  return true;
}

void TunerInput::stop() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStop = true;
  }
  m_cond.notify_all();
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

void TunerInput::feed(const unsigned char* data, size_t size) {
  m_packetizer.push(data, size);
  m_packetizer.process(this);
  publish(false, std::string());
}

void TunerInput::finishFeed() {
  m_packetizer.finish(this);
  publish(true, std::string());
}

TunerInput::Progress TunerInput::getProgress() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_progress;
}

bool TunerInput::waitForEnd(std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_cond.wait_for(lock, timeout, [this] { return m_progress.ended; });
}

void TunerInput::setEndListener(const std::function<void()>& listener) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_endListener = listener;
}

void TunerInput::publish(bool ended, const std::string& error) {
  std::function<void()> listener;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pSource) {
      m_progress.position = m_pSource->getPosition();
      m_progress.loops = m_pSource->getLoops();
    }
    m_progress.packetizer = m_packetizer.getStatistics();
    m_progress.packets = m_progress.packetizer.packets;
    m_progress.demux = m_demux.getStatistics();
    if (ended) {
      m_progress.ended = true;
      m_progress.error = error;
      listener = m_endListener;
    }
  }
  if (ended) {
    m_cond.notify_all();
  }
  if (listener) {
    listener();
  }
}

// Waits as the pacer says (stop cuts the wait short), then demultiplexes.
void TunerInput::onPackets(const unsigned char* first, unsigned int count, unsigned int stride) {
  StreamPacer::Clock::time_point wake = m_pacer.pace(first, count, stride);
  if (wake != StreamPacer::Clock::time_point()) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_cond.wait_until(lock, wake, [this] { return m_bStop; })) {
      return;
    }
  }
  m_health.onPackets(first, count, stride);
  m_demux.onPackets(first, count, stride);
}

void TunerInput::run() {
  const size_t chunk =
      m_pacer.getMode() == StreamPacer::kAsFastAsPossible ? kFastChunk : kPacedChunk;
  uint64_t packetsAtPassStart = 0;
  m_demux.reset();
  m_pacer.restart();
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_bStop) {
        break;
      }
    }
    TransportStreamSource::ReadResult result = m_pSource->read(&m_packetizer, chunk, kPipeWaitMs);
    if (result == TransportStreamSource::kData) {
      m_packetizer.process(this);
      publish(false, std::string());
      continue;
    }
    if (result == TransportStreamSource::kNoDataYet) {
      continue;
    }
    m_packetizer.finish(this);
    if (result == TransportStreamSource::kLooped) {
      // A pass without a single packet would loop for ever.
      uint64_t packets = m_packetizer.getStatistics().packets;
      if (packets == packetsAtPassStart) {
        publish(true, m_strName + ": no transport-stream packets found");
        return;
      }
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_progress.passPackets == 0) {
          m_progress.passPackets = packets - packetsAtPassStart;
        }
      }
      packetsAtPassStart = packets;
      m_demux.reset();
      m_health.restart();
      m_pacer.restart();
      publish(false, std::string());
      continue;
    }
    if (result == TransportStreamSource::kError) {
      publish(true, m_pSource->getError());
      return;
    }
    // kEnd
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_progress.passPackets == 0) {
        m_progress.passPackets = m_packetizer.getStatistics().packets - packetsAtPassStart;
      }
    }
    std::string error;
    if (m_packetizer.getStatistics().packets == 0) {
      error = m_strName + ": no transport-stream packets found";
    }
    publish(true, error);
    return;
  }
  publish(true, std::string());
}

}  // namespace Ostrel
