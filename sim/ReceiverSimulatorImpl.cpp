#include "ReceiverSimulatorImpl.h"

#include <algorithm>
#include <thread>

#include "TransportStreamSource.h"
#include "TsPacket.h"
#include "TunerInput.h"

namespace Ostrel {

namespace {

// PIDs of the service information that a receiver always reassembles, so that
// synchronous requests find them; PMT PIDs are added as PATs name them.
const unsigned short kSiPidLast = 0x001F;
const unsigned short kExtraSiPids[] = {0x0024, 0x0026};

const unsigned char kPatTableId = 0x00;

// How long one side of the hand-over between a reader and the engine waits
// without sleeping before it sleeps: about one section's work of the engine.
const std::chrono::microseconds kSpinWait(20);

inline void relaxCpu() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__arm__) && defined(__ARM_ARCH) && __ARM_ARCH >= 7)
  __asm__ __volatile__("yield");
#endif
}

// Waits at most kSpinWait, without sleeping, for ready() to hold; true when
// it did. Sleeping and being woken cost two switches of thread, far more
// than the engine's work for one section. On one core the other side cannot
// run meanwhile, and where waits have not paid lately (a loaded machine, the
// other side asleep) most waits sleep at once: *misses counts the waits that
// ran out, and after kMissesToSkip of them only one in kSkipRound waits.
template <typename Ready>
bool spinFor(std::atomic<unsigned int>* misses, Ready ready) {
  static const bool s_bManyCores = std::thread::hardware_concurrency() > 1;
  const unsigned int kMissesToSkip = 4;
  const unsigned int kSkipRound = 64;
  const unsigned int missed = misses->load(std::memory_order_relaxed);
  if (!s_bManyCores ||
      (missed >= kMissesToSkip && (missed - kMissesToSkip) % kSkipRound != kSkipRound - 1)) {
    if (missed >= kMissesToSkip) {
      misses->fetch_add(1, std::memory_order_relaxed);
    }
    return ready();
  }
  const std::chrono::steady_clock::time_point until = std::chrono::steady_clock::now() + kSpinWait;
  do {
    for (int i = 0; i < 32; ++i) {
      if (ready()) {
        misses->store(0, std::memory_order_relaxed);
        return true;
      }
      relaxCpu();
    }
  } while (std::chrono::steady_clock::now() < until);
  misses->fetch_add(1, std::memory_order_relaxed);
  return false;
}

}  // namespace

ReceiverSimulator::Impl::Impl(const Options& options)
    : m_options(options),
      m_controls(options.screenWidth, options.screenHeight, options.sourceWidth,
                 options.sourceHeight),
      m_ePacing(StreamPacer::kAsFastAsPossible),
      m_ullBitRate(0),
      m_bStarted(false),
      m_bShutdown(false),
      m_bInterrupted(false),
      m_ullPushed(0),
      m_ullDone(0),
      m_ullTaken(0),
      m_aullDone(0),
      m_aullQueueEvents(0),
      m_auiReaderMisses(0),
      m_auiEngineMisses(0),
      m_rng(1),
      m_ullDropped(0),
      m_ullCorrupted(0) {}

ReceiverSimulator::Impl::~Impl() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bShutdown = true;
    ++m_aullQueueEvents;
  }
  m_condReader.notify_all();
  stop();
  m_vecTuners.clear();
}

int ReceiverSimulator::Impl::addTuner(std::unique_ptr<TransportStreamSource> source,
                                      unsigned char type) {
  std::lock_guard<std::mutex> lock(m_mutex);
  int id = static_cast<int>(m_vecTuners.size());
  std::unique_ptr<TunerInput> tuner(new TunerInput(id, type, std::move(source), this));
  tuner->setPacing(m_ePacing, m_ullBitRate);
  for (unsigned short pid = 0; pid <= kSiPidLast; ++pid) {
    tuner->getDemux()->enablePid(pid);
  }
  for (size_t i = 0; i < sizeof(kExtraSiPids) / sizeof(kExtraSiPids[0]); ++i) {
    tuner->getDemux()->enablePid(kExtraSiPids[i]);
  }
  if (m_bStarted) {
    tuner->start();
  }
  m_controls.addTuner(id, type);
  m_vecTuners.push_back(std::move(tuner));
  return id;
}

void ReceiverSimulator::Impl::setPacing(StreamPacer::Mode mode, uint64_t bitRate) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_ePacing = mode;
  m_ullBitRate = bitRate;
}

void ReceiverSimulator::Impl::start() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_bStarted = true;
  for (size_t i = 0; i < m_vecTuners.size(); ++i) {
    m_vecTuners[i]->start();
  }
}

bool ReceiverSimulator::Impl::startTuner(int tunerId) {
  TunerInput* tuner = getTuner(tunerId);
  return tuner && tuner->start();
}

void ReceiverSimulator::Impl::stop() {
  std::vector<TunerInput*> tuners;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStarted = false;
    for (size_t i = 0; i < m_vecTuners.size(); ++i) {
      tuners.push_back(m_vecTuners[i].get());
    }
  }
  // The readers call onSection, which takes m_mutex: join without holding it.
  for (size_t i = 0; i < tuners.size(); ++i) {
    tuners[i]->stop();
  }
}

bool ReceiverSimulator::Impl::feed(int tunerId, const unsigned char* data, size_t size) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner) {
    return false;
  }
  tuner->feed(data, size);
  return true;
}

TunerInput* ReceiverSimulator::Impl::getTuner(int tunerId) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (tunerId < 0 || static_cast<size_t>(tunerId) >= m_vecTuners.size()) {
    return NULL;
  }
  return m_vecTuners[tunerId].get();
}

int ReceiverSimulator::Impl::getTunerCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<int>(m_vecTuners.size());
}

bool ReceiverSimulator::Impl::getTuners(std::vector<Tuner>* tuners) {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (size_t i = 0; i < m_vecTuners.size(); ++i) {
    Tuner tuner = {static_cast<int>(i), m_vecTuners[i]->getType()};
    tuners->push_back(tuner);
  }
  return true;
}

bool ReceiverSimulator::Impl::waitDrained(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_condReader.wait_for(lock, timeout, [this] {
    return m_bShutdown || (m_dequeQueue.empty() && m_ullDone >= m_ullTaken);
  });
}

void ReceiverSimulator::Impl::setFaultPlan(const FaultPlan& plan) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_faults = plan;
  m_rng.seed(plan.seed);
}

void ReceiverSimulator::Impl::getFaultCounts(uint64_t* dropped, uint64_t* corrupted) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  *dropped = m_ullDropped;
  *corrupted = m_ullCorrupted;
}

std::string ReceiverSimulator::Impl::getKeyHolder(unsigned int keyCode) const {
  return m_controls.getKeyHolder(keyCode);
}

std::vector<std::pair<std::string, unsigned char>> ReceiverSimulator::Impl::getAppStatusChanges()
    const {
  return m_controls.getAppStatusChanges();
}

int ReceiverSimulator::Impl::executeControl(TCommand* command, TCommand** response) {
  return m_controls.execute(command, response);
}

// ---- Filters, on the engine's delivery thread ----

bool ReceiverSimulator::Impl::openFilter(int tunerId, unsigned short pid) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner || pid >= TsPacket::kPidCount) {
    return false;
  }
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_setFilters.insert(std::make_pair(tunerId, pid));
  }
  tuner->getDemux()->enablePid(pid);
  return true;
}

void ReceiverSimulator::Impl::closeFilter(int tunerId, unsigned short pid) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_setFilters.erase(std::make_pair(tunerId, pid));
}

SectionSource::ReadResult ReceiverSimulator::Impl::readSection(int timeoutMs, Section* section) {
  std::unique_lock<std::mutex> lock(m_mutex);
  // The engine is back: what it was given last has been dealt with.
  m_ullDone = m_ullTaken;
  m_aullDone.store(m_ullDone, std::memory_order_release);
  m_condReader.notify_all();
  const Clock::time_point limit = timeoutMs < 0
                                      ? Clock::time_point::max()
                                      : Clock::now() + std::chrono::milliseconds(timeoutMs);
  bool spun = false;
  for (;;) {
    if (m_bInterrupted || m_bShutdown) {
      m_bInterrupted = false;
      return kNothing;
    }
    const Clock::time_point now = Clock::now();
    if (!m_dequeQueue.empty() && m_dequeQueue.front().due <= now) {
      Queued& first = m_dequeQueue.front();
      m_ullTaken = first.seq;
      section->tunerId = first.section.tunerId;
      section->pid = first.section.pid;
      section->data.swap(first.section.data);
      m_dequeQueue.pop_front();
      return kSection;
    }
    if (now >= limit) {
      return kNothing;
    }
    if (!spun && m_dequeQueue.empty() && limit - now > kSpinWait) {
      // A reader that was waiting for this call usually queues its next
      // section within microseconds.
      spun = true;
      const uint64_t seen = m_aullQueueEvents.load(std::memory_order_acquire);
      lock.unlock();
      spinFor(&m_auiEngineMisses,
              [this, seen] { return m_aullQueueEvents.load(std::memory_order_acquire) != seen; });
      lock.lock();
      continue;
    }
    const Clock::time_point wake =
        m_dequeQueue.empty() ? limit : std::min(limit, m_dequeQueue.front().due);
    if (wake == Clock::time_point::max()) {
      m_condQueue.wait(lock);
    } else {
      m_condQueue.wait_until(lock, wake);
    }
  }
}

void ReceiverSimulator::Impl::interrupt() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bInterrupted = true;
    ++m_aullQueueEvents;
  }
  m_condQueue.notify_all();
}

void ReceiverSimulator::Impl::findCarried(int tunerId, unsigned short pid,
                                          std::vector<std::vector<unsigned char>>* sections) {
  std::lock_guard<std::mutex> lock(m_mutex);
  CarriedKey first(std::make_pair(tunerId, pid), std::make_pair(0u, 0u));
  for (std::map<CarriedKey, std::vector<unsigned char>>::iterator it =
           m_mapCarried.lower_bound(first);
       it != m_mapCarried.end() && it->first.first == first.first; ++it) {
    std::vector<unsigned char> copy(it->second);
    if (__applyFaults(pid, &copy)) {
      sections->push_back(copy);
    }
  }
}

// ---- Sections from the tuners ----

void ReceiverSimulator::Impl::onSection(int tunerId, unsigned short pid, const unsigned char* data,
                                        unsigned int size) {
  if (pid == 0 && data[0] == kPatTableId) {
    learnProgramPids(tunerId, data, size);
  }
  std::unique_lock<std::mutex> lock(m_mutex);
  // One section in the engine's hands at a time, unless a delay fault holds
  // sections back. The engine is usually back within microseconds.
  if (!m_bShutdown && m_ullDone < m_ullPushed && m_faults.delayMs == 0) {
    const uint64_t pushed = m_ullPushed;
    lock.unlock();
    spinFor(&m_auiReaderMisses,
            [this, pushed] { return m_aullDone.load(std::memory_order_acquire) >= pushed; });
    lock.lock();
  }
  m_condReader.wait(
      lock, [this] { return m_bShutdown || m_ullDone >= m_ullPushed || m_faults.delayMs > 0; });
  __remember(tunerId, pid, data, size);
  if (!m_setFilters.count(std::make_pair(tunerId, pid))) {
    return;
  }
  Queued queued;
  queued.section.data.assign(data, data + size);
  if (!__applyFaults(pid, &queued.section.data)) {
    return;  // lost: a later repetition may still pass
  }
  queued.seq = ++m_ullPushed;
  ++m_aullQueueEvents;
  queued.due = Clock::now() + std::chrono::milliseconds(m_faults.delayMs);
  queued.section.tunerId = tunerId;
  queued.section.pid = pid;
  m_dequeQueue.push_back(std::move(queued));
  m_condQueue.notify_all();
}

// The PAT names the PMT PIDs (and the NIT's): reassemble them from now on.
void ReceiverSimulator::Impl::learnProgramPids(int tunerId, const unsigned char* data,
                                               unsigned int size) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner || size < 12 || (data[1] & 0x80) == 0) {
    return;
  }
  for (unsigned int i = 8; i + 4 <= size - 4; i += 4) {
    unsigned short pid = static_cast<unsigned short>(((data[i + 2] & 0x1F) << 8) | data[i + 3]);
    tuner->getDemux()->enablePid(pid);
  }
}

// REQUIRES: m_mutex held.
void ReceiverSimulator::Impl::__remember(int tunerId, unsigned short pid, const unsigned char* data,
                                         unsigned int size) {
  bool longForm = size >= 8 && (data[1] & 0x80) != 0;
  unsigned int extension = longForm ? ((data[3] << 8) | data[4]) : 0;
  unsigned int number = longForm ? data[6] : 0;
  CarriedKey key(std::make_pair(tunerId, pid), std::make_pair((data[0] << 16) | extension, number));
  std::map<CarriedKey, std::vector<unsigned char>>::iterator it = m_mapCarried.find(key);
  if (it != m_mapCarried.end()) {
    if (it->second.size() != size || !std::equal(it->second.begin(), it->second.end(), data)) {
      it->second.assign(data, data + size);
    }
    return;
  }
  size_t& count = m_mapCarriedCount[tunerId];
  if (count >= m_options.maxCarriedSections) {
    return;
  }
  ++count;
  m_mapCarried.insert(std::make_pair(key, std::vector<unsigned char>(data, data + size)));
}

// REQUIRES: m_mutex held.
bool ReceiverSimulator::Impl::__applyFaults(unsigned short pid, std::vector<unsigned char>* data) {
  if (m_faults.hiddenPids.count(pid)) {
    return false;
  }
  std::uniform_real_distribution<double> share(0.0, 1.0);
  if (m_faults.dropShare > 0.0 && share(m_rng) < m_faults.dropShare) {
    ++m_ullDropped;
    return false;
  }
  if (m_faults.corruptShare > 0.0 && !data->empty() && share(m_rng) < m_faults.corruptShare) {
    data->back() ^= 0xFF;  // the last byte of the CRC_32
    ++m_ullCorrupted;
  }
  return true;
}

}  // namespace Ostrel
