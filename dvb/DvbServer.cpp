#include "DvbServer.h"

#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>

#include "DvbDemuxFilter.h"
#include "DvbLog.h"
#include "GingaDataDestination.h"
#include "TDataRequestCommand.h"

namespace Ostrel {

namespace {

// The longest poll: deadlines are at most a few minutes ahead anyway.
const long long kMaxPollMs = 60 * 1000;

}  // namespace

thread_local int DvbServer::s_iExecuteDepth = 0;

DvbServer::DvbServer(const std::vector<std::string>& adapters, const Options& options)
    : m_vecAdapters(adapters),
      m_options(options),
      m_bShutdown(false),
      m_bCallingOut(false),
      m_iExecuting(0),
      m_iWakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      m_ullNextFilterId(0) {
  if (m_iWakeFd < 0) {
    dvbLog("eventfd: ERROR: %s; open data requests will be refused", std::strerror(errno));
    return;
  }
  m_deliveryThread = std::thread(&DvbServer::deliveryLoop, this);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_deliveryThreadId = m_deliveryThread.get_id();
}

DvbServer::~DvbServer() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bShutdown = true;
  }
  if (m_deliveryThread.joinable()) {
    wake();
    m_deliveryThread.join();
  }
  // Nothing else runs now: close what is still open, undelivered.
  std::vector<CallOut> open;
  for (std::map<uint64_t, OpenFilter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();
       ++it) {
    CallOut call;
    call.close = it->second.command;
    call.filter = std::move(it->second.filter);
    open.push_back(std::move(call));
  }
  m_counters.timedOut += m_mapFilters.size();
  m_mapFilters.clear();
  callOut(&open);
  if (m_iWakeFd >= 0) {
    ::close(m_iWakeFd);
  }
}

void DvbServer::wake() {
  const uint64_t one = 1;
  if (::write(m_iWakeFd, &one, sizeof(one)) < 0 && errno != EAGAIN) {
    dvbLog("write: ERROR: wake-up event: %s", std::strerror(errno));
  }
}

std::string DvbServer::demuxPath(int tunerId) const {
  return m_vecAdapters[tunerId] + "/demux0";
}

bool DvbServer::isValidKey(const char* what, int tunerId, short pid) const {
  if (tunerId < 0 || static_cast<size_t>(tunerId) >= m_vecAdapters.size()) {
    dvbLog("%s: ERROR: no tuner %d (%u adapters)", what, tunerId,
           static_cast<unsigned int>(m_vecAdapters.size()));
    return false;
  }
  if (static_cast<unsigned short>(pid) > 0x1FFF) {
    dvbLog("%s: ERROR: PID 0x%04X is not a transport-stream PID", what,
           static_cast<unsigned short>(pid));
    return false;
  }
  return true;
}

size_t DvbServer::getOpenFilterCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_mapFilters.size();
}

DvbServer::Counters DvbServer::getCounters() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_counters;
}

void DvbServer::waitBusyCommands() {
  std::unique_lock<std::mutex> lock(m_mutex);
  const bool onDeliveryThread = std::this_thread::get_id() == m_deliveryThreadId;
  const int own = s_iExecuteDepth;
  while (m_iExecuting - own > 0 || (m_bCallingOut && !onDeliveryThread)) {
    m_condIdle.wait(lock);
  }
}

// ---- Delivery thread ----

bool DvbServer::accept(OpenFilter* open, const std::vector<unsigned char>& section) {
  if ((section[1] & 0x80) == 0 || section.size() < 8) {
    open->shortForm = true;
    return true;
  }
  const unsigned short extension = static_cast<unsigned short>((section[3] << 8) | section[4]);
  const unsigned char version = (section[5] >> 1) & 0x1F;
  if (!open->tracking || extension != open->extension || version != open->version) {
    open->tracking = true;
    open->extension = extension;
    open->version = version;
    open->delivered.reset();
  }
  open->lastSection = section[7];
  if (open->delivered.test(section[6])) {
    return false;
  }
  open->delivered.set(section[6]);
  return true;
}

bool DvbServer::isComplete(const OpenFilter& open) {
  if (open.shortForm) {
    return true;
  }
  for (unsigned int number = 0; number <= open.lastSection; ++number) {
    if (!open.delivered.test(number)) {
      return false;
    }
  }
  return open.tracking;
}

// REQUIRES: m_mutex held.
void DvbServer::__takeDue(Clock::time_point now, std::vector<CallOut>* calls) {
  for (std::map<uint64_t, OpenFilter>::iterator it = m_mapFilters.begin();
       it != m_mapFilters.end();) {
    OpenFilter& open = it->second;
    const bool deliver = open.held && now >= open.passFrom;
    const bool complete = deliver && isComplete(open);
    if (!deliver && !open.failed && now < open.deadline) {
      ++it;
      continue;
    }
    CallOut call;
    call.tunerId = open.tunerId;
    call.pid = open.pid;
    call.tableId = open.tableId;
    call.tableIdExt = open.tableIdExt;
    call.close = NULL;
    if (deliver) {
      ++m_counters.deliveries;
      call.section.swap(open.section);
      open.held = false;
    }
    if (!deliver || complete) {
      ++(complete ? m_counters.completed : open.failed ? m_counters.failed : m_counters.timedOut);
      call.close = open.command;
      call.filter = std::move(open.filter);
      m_mapFilters.erase(it++);
    } else {
      ++it;
    }
    calls->push_back(std::move(call));
  }
}

void DvbServer::callOut(std::vector<CallOut>* calls) {
  for (size_t i = 0; i < calls->size(); ++i) {
    CallOut& call = (*calls)[i];
    call.filter.reset();  // a closing filter's descriptor goes before anything is called
    GingaDataDestination* destination = getDataDestination();
    if (!call.section.empty() && destination) {
      destination->injectData(call.tunerId, call.pid, call.tableId, call.tableIdExt, NULL,
                              &call.section[0], static_cast<unsigned int>(call.section.size()));
    }
    if (call.close) {
      closeOpenRequest(call.close);
    }
  }
  calls->clear();
}

void DvbServer::deliveryLoop() {
  struct Read {
    uint64_t id;
    DvbDemuxFilter::ReadResult result;
    short revents;
    std::vector<unsigned char> section;
  };
  std::vector<CallOut> calls;
  std::vector<pollfd> fds;
  std::vector<uint64_t> ids;
  std::vector<DvbDemuxFilter*> filters;
  std::vector<Read> reads;
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_bShutdown) {
    const Clock::time_point now = Clock::now();
    __takeDue(now, &calls);
    if (!calls.empty()) {
      m_bCallingOut = true;
      lock.unlock();
      callOut(&calls);
      lock.lock();
      m_bCallingOut = false;
      m_condIdle.notify_all();
      continue;
    }
    fds.assign(1, pollfd());
    fds[0].fd = m_iWakeFd;
    fds[0].events = POLLIN;
    ids.clear();
    filters.clear();
    Clock::time_point wakeAt = Clock::time_point::max();
    for (std::map<uint64_t, OpenFilter>::iterator it = m_mapFilters.begin();
         it != m_mapFilters.end(); ++it) {
      OpenFilter& open = it->second;
      wakeAt = std::min(wakeAt, open.held ? open.passFrom : open.deadline);
      if (!open.held) {
        pollfd entry = {open.filter->getFd(), POLLIN, 0};
        fds.push_back(entry);
        ids.push_back(it->first);
        filters.push_back(open.filter.get());
      }
    }
    long long timeoutMs = -1;
    if (wakeAt != Clock::time_point::max()) {
      timeoutMs = std::chrono::duration_cast<std::chrono::milliseconds>(wakeAt - now).count() + 1;
      timeoutMs = std::max(0LL, std::min(timeoutMs, kMaxPollMs));
    }
    lock.unlock();
    const int ready = poll(&fds[0], fds.size(), static_cast<int>(timeoutMs));
    if (ready < 0 && errno != EINTR) {
      dvbLog("poll: ERROR: %s", std::strerror(errno));
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (fds[0].revents) {
      uint64_t count = 0;
      if (::read(m_iWakeFd, &count, sizeof(count)) < 0 && errno != EAGAIN) {
        dvbLog("read: ERROR: wake-up event: %s", std::strerror(errno));
      }
    }
    // Reads without the lock: only this thread uses or closes these filters.
    reads.clear();
    for (size_t i = 1; ready > 0 && i < fds.size(); ++i) {
      if (fds[i].revents) {
        Read read = {ids[i - 1], DvbDemuxFilter::kNothing, fds[i].revents,
                     std::vector<unsigned char>()};
        read.result = filters[i - 1]->read(&read.section);
        reads.push_back(read);
      }
    }
    lock.lock();
    const Clock::time_point readAt = Clock::now();
    for (size_t i = 0; i < reads.size(); ++i) {
      OpenFilter& open = m_mapFilters.find(reads[i].id)->second;
      const bool hungUp = (reads[i].revents & (POLLHUP | POLLNVAL)) != 0;
      if (reads[i].result == DvbDemuxFilter::kSection) {
        if (readAt < open.deadline && accept(&open, reads[i].section)) {
          open.held = true;
          open.section.swap(reads[i].section);
        }
      } else if (reads[i].result == DvbDemuxFilter::kFailed || hungUp ||
                 (reads[i].result == DvbDemuxFilter::kNothing &&
                  (reads[i].revents & POLLERR) != 0)) {
        if (reads[i].result != DvbDemuxFilter::kFailed) {
          dvbLog("poll: ERROR: %s (PID 0x%04X): the device reports an error or hung up",
                 demuxPath(open.tunerId).c_str(), static_cast<unsigned short>(open.pid));
        }
        open.failed = true;
      }
    }
  }
}

}  // namespace Ostrel
