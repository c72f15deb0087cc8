#include "DvbSource.h"

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>

#include "DvbDemuxFilter.h"
#include "DvbFrontend.h"
#include "DvbLog.h"
#include "TCommand.h"

namespace Ostrel {

namespace {

// Without an eventfd, interrupt cannot end a poll: it is held this short.
const int kPollWithoutWakeMs = 50;

// Reads per filter a poll found ready before the next poll. Bounded, so that a
// filter that was not ready at the poll (or was opened since) is seen while
// the others stay busy: a demux that fills them as fast as they are read would
// otherwise never let the ready ones drain, and the one left out overflows.
const unsigned int kReadsPerReadyFilter = 32;

}  // namespace

DvbSource::DvbSource(const std::vector<std::string>& adapters, const Options& options)
    : m_vecAdapters(adapters),
      m_options(options),
      m_iWakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      m_lastRead(-1, 0),
      m_uiReadBudget(0),
      m_bInterrupted(false) {
  if (m_iWakeFd < 0) {
    dvbLog("eventfd: ERROR: %s; the delivery thread will poll every %d ms", std::strerror(errno),
           kPollWithoutWakeMs);
  }
}

DvbSource::~DvbSource() {
  m_mapFilters.clear();
  if (m_iWakeFd >= 0 && ::close(m_iWakeFd) != 0) {
    dvbLog("close: ERROR: wake-up event: %s", std::strerror(errno));
  }
}

bool DvbSource::getTuners(std::vector<Tuner>* tuners) {
  for (size_t i = 0; i < m_vecAdapters.size(); ++i) {
    Tuner tuner = {static_cast<int>(i), 0};
    std::string name;
    if (DvbFrontend::probe(m_vecAdapters[i] + "/frontend0", &tuner.type, &name)) {
      tuners->push_back(tuner);
    }
  }
  if (tuners->empty() && !m_vecAdapters.empty()) {
    dvbLog("getTunerList: ERROR: no adapter's frontend answered");
    return false;
  }
  return true;
}

unsigned int DvbSource::getFilterLimit(int tunerId) const {
  (void)tunerId;
  return m_options.filterLimit;
}

bool DvbSource::openFilter(int tunerId, unsigned short pid) {
  const FilterKey key(tunerId, pid);
  if (m_mapFilters.count(key)) {
    return true;
  }
  Filter filter;
  filter.device.reset(new DvbDemuxFilter(m_vecAdapters[tunerId] + "/demux0", tunerId, pid));
  filter.failed = false;
  if (!filter.device->open(m_options.bufferSize)) {
    return false;
  }
  m_mapFilters.insert(std::make_pair(key, std::move(filter)));
  return true;
}

void DvbSource::closeFilter(int tunerId, unsigned short pid) {
  m_mapFilters.erase(FilterKey(tunerId, pid));
}

void DvbSource::interrupt() {
  m_bInterrupted = true;
  const uint64_t one = 1;
  if (m_iWakeFd >= 0 && ::write(m_iWakeFd, &one, sizeof(one)) < 0 && errno != EAGAIN) {
    dvbLog("write: ERROR: wake-up event: %s", std::strerror(errno));
  }
}

bool DvbSource::readReady(ReadResult* result, Section* section) {
  while (!m_dequeReady.empty()) {
    if (m_uiReadBudget == 0) {
      m_dequeReady.clear();  // polled again: the filters not in this round get their turn
      return false;
    }
    --m_uiReadBudget;
    const FilterKey key = m_dequeReady.front();
    m_dequeReady.pop_front();
    std::map<FilterKey, Filter>::iterator it = m_mapFilters.find(key);
    if (it == m_mapFilters.end() || it->second.failed) {
      continue;  // closed, or failed, since the poll
    }
    switch (it->second.device->read(&section->data)) {
      case DvbDemuxFilter::kSection:
        m_dequeReady.push_back(key);  // more may wait; the others go first
        m_lastRead = key;
        section->tunerId = key.first;
        section->pid = key.second;
        *result = kSection;
        return true;
      case DvbDemuxFilter::kLost:
        m_dequeReady.push_back(key);
        *result = kNothing;  // logged; a later repetition answers
        return true;
      case DvbDemuxFilter::kFailed:
        it->second.failed = true;
        section->tunerId = key.first;
        section->pid = key.second;
        *result = kFilterFailed;
        return true;
      default:
        break;  // drained: polled again
    }
  }
  return false;
}

SectionSource::ReadResult DvbSource::readSection(int timeoutMs, Section* section) {
  if (m_bInterrupted.exchange(false)) {
    uint64_t count = 0;
    if (m_iWakeFd >= 0 && ::read(m_iWakeFd, &count, sizeof(count)) < 0 && errno != EAGAIN) {
      dvbLog("read: ERROR: wake-up event: %s", std::strerror(errno));
    }
    return kNothing;
  }
  ReadResult fromReady = kNothing;
  if (readReady(&fromReady, section)) {
    return fromReady;
  }
  std::vector<pollfd> fds(1);
  std::vector<std::map<FilterKey, Filter>::iterator> polled(1, m_mapFilters.end());
  fds[0].fd = m_iWakeFd;  // a negative descriptor is ignored by poll
  fds[0].events = POLLIN;
  fds[0].revents = 0;
  for (std::map<FilterKey, Filter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();
       ++it) {
    if (!it->second.failed) {
      const pollfd entry = {it->second.device->getFd(), POLLIN, 0};
      fds.push_back(entry);
      polled.push_back(it);
    }
  }
  if (m_iWakeFd < 0 && (timeoutMs < 0 || timeoutMs > kPollWithoutWakeMs)) {
    timeoutMs = kPollWithoutWakeMs;
  }
  const int ready = poll(&fds[0], fds.size(), timeoutMs);
  if (ready < 0) {
    if (errno != EINTR) {
      dvbLog("poll: ERROR: %u descriptors: %s", static_cast<unsigned int>(fds.size()),
             std::strerror(errno));
    }
    return kNothing;
  }
  if (fds[0].revents) {
    m_bInterrupted = false;
    uint64_t count = 0;
    if (::read(m_iWakeFd, &count, sizeof(count)) < 0 && errno != EAGAIN) {
      dvbLog("read: ERROR: wake-up event: %s", std::strerror(errno));
    }
    return kNothing;
  }
  // The first ready filter after the one read last, else the first ready.
  size_t chosen = 0;
  for (size_t i = 1; i < fds.size(); ++i) {
    if (fds[i].revents &&
        (chosen == 0 || (polled[chosen]->first <= m_lastRead && polled[i]->first > m_lastRead))) {
      chosen = i;
    }
  }
  if (chosen == 0) {
    return kNothing;
  }
  Filter& filter = polled[chosen]->second;
  const short revents = fds[chosen].revents;
  m_lastRead = polled[chosen]->first;
  section->tunerId = m_lastRead.first;
  section->pid = m_lastRead.second;
  DvbDemuxFilter::ReadResult result = DvbDemuxFilter::kFailed;
  if (revents & (POLLHUP | POLLNVAL)) {
    filter.device->logHangUp();
  } else {
    result = filter.device->read(&section->data);
    if (result == DvbDemuxFilter::kNothing && (revents & POLLERR)) {
      filter.device->logHangUp();
      result = DvbDemuxFilter::kFailed;
    }
  }
  // The other ready filters are read on from the next call, in turn after
  // this one; this one too while it has sections; all within the budget.
  m_dequeReady.clear();
  m_uiReadBudget = kReadsPerReadyFilter;
  for (size_t i = chosen + 1; i < fds.size() + chosen; ++i) {
    const size_t at = i < fds.size() ? i : i - fds.size() + 1;
    if (at != chosen && fds[at].revents == POLLIN) {
      m_dequeReady.push_back(polled[at]->first);
      m_uiReadBudget += kReadsPerReadyFilter;
    }
  }
  switch (result) {
    case DvbDemuxFilter::kSection:
      m_dequeReady.push_back(m_lastRead);
      return kSection;
    case DvbDemuxFilter::kFailed:
      filter.failed = true;
      return kFilterFailed;
    default:
      return kNothing;  // lost sections are logged; a later repetition answers
  }
}

int DvbSource::executeControl(TCommand* command, TCommand** response) {
  (void)response;
  dvbLog(
      "execute: command 0x%03X refused: a DVB adapter has no remote-control keys, "
      "application status or video plane",
      command->getCode());
  return 0;
}

}  // namespace Ostrel
