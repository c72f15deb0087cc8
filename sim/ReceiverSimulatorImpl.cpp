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

// Sections queued between the readers and the engine; a reader that finds
// the queue full sleeps until the engine has taken half of it, so that each
// side wakes the other once per batch, not once per section.
const size_t kQueueCapacity = 512;
const size_t kQueueLowWater = kQueueCapacity / 2;

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
      m_bEngineStopped(false),
      m_bEngineWaiting(false),
      m_uiStopping(0),
      m_uiReadersWaiting(0),
      m_bReadersWoken(false),
      m_uiDrainWaiters(0),
      m_aiTunerCount(0),
      m_ullPushed(0),
      m_ullTaken(0),
      m_ullDone(0),
      m_rng(1),
      m_ullDropped(0),
      m_ullCorrupted(0) {}

ReceiverSimulator::Impl::~Impl() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bShutdown = true;
  }
  m_condReader.notify_all();
  m_condDrained.notify_all();
  stop();
  m_vecTuners.clear();
}

int ReceiverSimulator::Impl::addTuner(std::unique_ptr<TransportStreamSource> source,
                                      unsigned char type) {
  std::lock_guard<std::mutex> lock(m_mutex);
  int id = static_cast<int>(m_vecTuners.size());
  std::unique_ptr<TunerSink> sink(new TunerSink(this, id));
  std::unique_ptr<TunerInput> tuner(new TunerInput(id, type, std::move(source), sink.get()));
  sink->m_pTuner = tuner.get();
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
  m_vecSinks.push_back(std::move(sink));
  m_aiTunerCount.store(static_cast<int>(m_vecTuners.size()));
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
    ++m_uiStopping;
    for (size_t i = 0; i < m_vecTuners.size(); ++i) {
      tuners.push_back(m_vecTuners[i].get());
    }
  }
  // A reader waiting for room stops waiting; the readers call onSection,
  // which takes m_mutex: join without holding it.
  m_condReader.notify_all();
  for (size_t i = 0; i < tuners.size(); ++i) {
    tuners[i]->stop();
  }
  std::lock_guard<std::mutex> lock(m_mutex);
  --m_uiStopping;
}

bool ReceiverSimulator::Impl::feed(int tunerId, const unsigned char* data, size_t size) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner) {
    return false;
  }
  tuner->feed(data, size);
  // What was fed has been dealt with before feed returns, as a tuner whose
  // sections come slower than the engine answers them.
  std::unique_lock<std::mutex> lock(m_mutex);
  __waitFed(&lock);
  return true;
}

// REQUIRES: m_mutex held.
void ReceiverSimulator::Impl::__waitFed(std::unique_lock<std::mutex>* lock) {
  const uint64_t target = m_ullPushed;
  ++m_uiDrainWaiters;
  // Delayed sections are not waited for.
  m_condDrained.wait(*lock, [this, target] {
    return m_bShutdown || m_bEngineStopped || __isDrained(target) || m_faults.delayMs > 0;
  });
  --m_uiDrainWaiters;
}

TunerInput* ReceiverSimulator::Impl::getTuner(int tunerId) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (tunerId < 0 || static_cast<size_t>(tunerId) >= m_vecTuners.size()) {
    return NULL;
  }
  return m_vecTuners[tunerId].get();
}

// Asked by every command: read without the lock the readers take.
int ReceiverSimulator::Impl::getTunerCount() const {
  return m_aiTunerCount.load();
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
  const uint64_t target = m_ullPushed;
  ++m_uiDrainWaiters;
  const bool drained = m_condDrained.wait_for(lock, timeout, [this, target] {
    return m_bShutdown || m_bEngineStopped || __isDrained(target);
  });
  --m_uiDrainWaiters;
  return drained;
}

void ReceiverSimulator::Impl::setFaultPlan(const FaultPlan& plan) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_faults = plan;
  m_rng.seed(plan.seed);
  m_condReader.notify_all();  // a delay lets readers and feeders go on
  m_condDrained.notify_all();
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

// Nothing takes the queue any more: readers and feeders stop waiting for it.
void ReceiverSimulator::Impl::readingStopped() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bEngineStopped = true;
  }
  m_condReader.notify_all();
  m_condDrained.notify_all();
}

SectionSource::ReadResult ReceiverSimulator::Impl::readSection(int timeoutMs, Section* section) {
  std::unique_lock<std::mutex> lock(m_mutex);
  // The engine is back: what it was given last has been dealt with.
  m_ullDone = std::max(m_ullDone, m_ullTaken);
  // The wait's end is read off the clock only when there is a wait.
  Clock::time_point limit = Clock::time_point::min();
  ReadResult result = kNothing;
  for (;;) {
    if (m_bInterrupted || m_bShutdown) {
      m_bInterrupted = false;
      break;
    }
    // Sections that are not delayed are due at once: no clock is read.
    Clock::time_point now = Clock::time_point::min();
    while (!m_dequeQueue.empty()) {
      Queued& first = m_dequeQueue.front();
      if (first.due != Clock::time_point::min()) {
        if (now == Clock::time_point::min()) {
          now = Clock::now();
        }
        if (first.due > now) {
          break;
        }
      }
      // Whether a filter wants it is decided now, once the engine has dealt
      // with every section before it.
      bool damaged = false;
      const bool wanted =
          first.due != Clock::time_point::min() ||
          (m_setFilters.count(std::make_pair(first.section.tunerId, first.section.pid)) != 0 &&
           __applyFaults(first.section.pid, &first.section.data, &damaged));
      if (wanted) {
        section->tunerId = first.section.tunerId;
        section->pid = first.section.pid;
        section->data.swap(first.section.data);
        // The demultiplexer checked it; the engine checks what a fault damaged.
        section->intact = first.section.intact && !damaged;
        m_ullTaken = first.seq;
        result = kSection;
      } else {
        m_ullDone = first.seq;
      }
      m_dequeQueue.pop_front();
      if (wanted) {
        break;
      }
    }
    if (result == kSection) {
      break;
    }
    now = Clock::now();
    if (limit == Clock::time_point::min()) {
      limit = timeoutMs < 0 ? Clock::time_point::max() : now + std::chrono::milliseconds(timeoutMs);
    }
    if (now >= limit) {
      break;
    }
    if (m_uiReadersWaiting > 0 && !m_bReadersWoken) {
      m_bReadersWoken = true;
      m_condReader.notify_all();
    }
    if (m_uiDrainWaiters > 0) {
      m_condDrained.notify_all();
    }
    const Clock::time_point wake =
        m_dequeQueue.empty() ? limit : std::min(limit, m_dequeQueue.front().due);
    m_bEngineWaiting = true;
    if (wake == Clock::time_point::max()) {
      m_condQueue.wait(lock);
    } else {
      m_condQueue.wait_until(lock, wake);
    }
    m_bEngineWaiting = false;
  }
  // Readers sleep until half the queue is free; drain waiters until the
  // sections they wait for are dealt with.
  if (m_uiReadersWaiting > 0 && !m_bReadersWoken && m_dequeQueue.size() <= kQueueLowWater) {
    m_bReadersWoken = true;  // once: the engine goes on taking meanwhile
    m_condReader.notify_all();
  }
  if (m_uiDrainWaiters > 0) {
    m_condDrained.notify_all();
  }
  return result;
}

void ReceiverSimulator::Impl::interrupt() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bInterrupted = true;
  }
  m_condQueue.notify_all();
}

void ReceiverSimulator::Impl::findCarried(int tunerId, unsigned short pid,
                                          std::vector<std::vector<unsigned char>>* sections) {
  std::vector<std::vector<unsigned char>> carried;
  {
    std::lock_guard<std::mutex> lock(m_carriedMutex);
    CarriedKey first(std::make_pair(tunerId, pid), std::make_pair(0u, 0u));
    for (std::map<CarriedKey, std::vector<unsigned char>>::iterator it =
             m_mapCarried.lower_bound(first);
         it != m_mapCarried.end() && it->first.first == first.first; ++it) {
      carried.push_back(it->second);
    }
  }
  std::lock_guard<std::mutex> lock(m_mutex);
  for (size_t i = 0; i < carried.size(); ++i) {
    if (__applyFaults(pid, &carried[i])) {
      sections->push_back(carried[i]);
    }
  }
}

// ---- Sections from the tuners ----

void ReceiverSimulator::Impl::TunerSink::onSection(int tunerId, unsigned short pid,
                                                   const unsigned char* data, unsigned int size) {
  (void)tunerId;
  // At once: the PMTs that follow in this batch are reassembled too.
  if (pid == 0 && data[0] == kPatTableId) {
    learnProgramPids(m_pTuner, data, size);
  }
  m_vecStaged.push_back(Staged());
  m_vecStaged.back().pid = pid;
  m_vecStaged.back().data.assign(data, data + size);
  if (m_vecStaged.size() >= kQueueLowWater) {
    m_pOwner->queueSections(m_iTunerId, &m_vecStaged);
  }
}

void ReceiverSimulator::Impl::TunerSink::onPacketsDone(int tunerId) {
  (void)tunerId;
  if (!m_vecStaged.empty()) {
    m_pOwner->queueSections(m_iTunerId, &m_vecStaged);
  }
}

void ReceiverSimulator::Impl::queueSections(int tunerId, std::vector<Staged>* staged) {
  {
    std::lock_guard<std::mutex> lock(m_carriedMutex);
    for (size_t i = 0; i < staged->size(); ++i) {
      const Staged& one = (*staged)[i];
      __remember(tunerId, one.pid, &one.data[0], static_cast<unsigned int>(one.data.size()));
    }
  }
  std::unique_lock<std::mutex> lock(m_mutex);
  bool queued = false;
  for (size_t i = 0; i < staged->size(); ++i) {
    Staged& one = (*staged)[i];
    if (m_bShutdown || m_bEngineStopped || m_uiStopping > 0 || !__wantsSections(tunerId)) {
      continue;
    }
    Queued entry;
    const bool delayed = m_faults.delayMs > 0;
    entry.due = Clock::time_point::min();
    if (delayed) {
      // Decided now, and held back without holding the reader back.
      bool damaged = false;
      if (!m_setFilters.count(std::make_pair(tunerId, one.pid)) ||
          !__applyFaults(one.pid, &one.data, &damaged)) {
        continue;  // a dropped one is lost: a later repetition may still pass
      }
      entry.due = Clock::now() + std::chrono::milliseconds(m_faults.delayMs);
      entry.section.intact = !damaged;
    } else if (m_dequeQueue.size() >= kQueueCapacity) {
      if (queued && m_bEngineWaiting) {
        m_bEngineWaiting = false;
        m_condQueue.notify_one();
      }
      ++m_uiReadersWaiting;
      m_bReadersWoken = false;
      m_condReader.wait(lock, [this] {
        return m_bShutdown || m_bEngineStopped || m_uiStopping > 0 || m_faults.delayMs > 0 ||
               m_dequeQueue.size() <= kQueueLowWater;
      });
      --m_uiReadersWaiting;
      if (m_bShutdown || m_bEngineStopped || m_uiStopping > 0) {
        continue;
      }
    }
    if (!delayed) {
      entry.section.intact = true;  // faults come when it is taken
    }
    entry.seq = ++m_ullPushed;
    entry.section.tunerId = tunerId;
    entry.section.pid = one.pid;
    entry.section.data.swap(one.data);
    m_dequeQueue.push_back(std::move(entry));
    queued = true;
  }
  staged->clear();
  if (queued && m_bEngineWaiting) {
    m_bEngineWaiting = false;  // woken once
    m_condQueue.notify_one();
  }
}

// REQUIRES: m_mutex held. A section queued now may be taken by a filter that
// is open, or that a notification opens before the section is taken: one on
// the tuner is open, the engine holds a section, or sections wait before it.
bool ReceiverSimulator::Impl::__wantsSections(int tunerId) const {
  if (!m_dequeQueue.empty() || m_ullDone < m_ullTaken) {
    return true;
  }
  std::set<std::pair<int, unsigned short>>::const_iterator it =
      m_setFilters.lower_bound(std::make_pair(tunerId, static_cast<unsigned short>(0)));
  return it != m_setFilters.end() && it->first == tunerId;
}

// The PAT names the PMT PIDs (and the NIT's): reassemble them from now on.
void ReceiverSimulator::Impl::learnProgramPids(TunerInput* tuner, const unsigned char* data,
                                               unsigned int size) {
  if (!tuner || size < 12 || (data[1] & 0x80) == 0) {
    return;
  }
  for (unsigned int i = 8; i + 4 <= size - 4; i += 4) {
    unsigned short pid = static_cast<unsigned short>(((data[i + 2] & 0x1F) << 8) | data[i + 3]);
    tuner->getDemux()->enablePid(pid);
  }
}

// REQUIRES: m_carriedMutex held.
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
bool ReceiverSimulator::Impl::__applyFaults(unsigned short pid, std::vector<unsigned char>* data,
                                            bool* damaged) {
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
    if (damaged) {
      *damaged = true;
    }
  }
  return true;
}

}  // namespace Ostrel
