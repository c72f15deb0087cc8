// The commands as the DVB server executes them.
#include <errno.h>
#include <poll.h>

#include <cstring>

#include "DvbDemuxFilter.h"
#include "DvbFrontend.h"
#include "DvbLog.h"
#include "DvbServer.h"
#include "GingaDataDestination.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
#include "TSyncDataRequestCommand.h"

namespace Ostrel {

namespace {

// A command's time-out in seconds as milliseconds, held to a day.
unsigned int timeOutMs(unsigned int seconds) {
  return seconds > 86400 ? 86400000u : seconds * 1000;
}

}  // namespace

int DvbServer::execute(TCommand* command, TCommand** response) {
  if (!command) {
    return 0;
  }
  // In flight for waitBusyCommands until it returns, on every path.
  struct Scope {
    explicit Scope(DvbServer* server) : m_pServer(server) {
      std::lock_guard<std::mutex> lock(m_pServer->m_mutex);
      ++m_pServer->m_iExecuting;
      ++s_iExecuteDepth;
    }
    ~Scope() {
      {
        std::lock_guard<std::mutex> lock(m_pServer->m_mutex);
        --m_pServer->m_iExecuting;
        --s_iExecuteDepth;
      }
      m_pServer->m_condIdle.notify_all();
    }
    DvbServer* m_pServer;
  } scope(this);
  int result = 0;
  switch (command->getCode()) {
    case TDataRequestCommand::kCode: {
      TDataRequestCommand* request = static_cast<TDataRequestCommand*>(command);
      result =
          request->getOpen()
              ? executeOpenRequest(request)
              : executeSyncRequest(request->getTunerId(), request->getPid(), request->getTableId(),
                                   request->getTableIdExt(), timeOutMs(request->getTimeOut()));
      break;
    }
    case TSyncDataRequestCommand::kCode: {
      TSyncDataRequestCommand* request = static_cast<TSyncDataRequestCommand*>(command);
      result = executeSyncRequest(request->getTunerId(), request->getPid(), request->getTableId(),
                                  request->getTableIdExt(), 0);
      break;
    }
    case TGetTunerListCommand::kCode:
      result = executeTunerList(response);
      break;
    default:
      dvbLog(
          "execute: command 0x%03X refused: a DVB adapter has no remote-control keys, "
          "application status or video plane",
          command->getCode());
      break;
  }
  if (!result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counters.commandsRefused;
  }
  return result;
}

int DvbServer::executeOpenRequest(TDataRequestCommand* request) {
  if (!isValidKey("requestData", request->getTunerId(), request->getPid())) {
    return 0;  // refused: the command library closes the request
  }
  std::unique_ptr<DvbDemuxFilter> filter(
      new DvbDemuxFilter(demuxPath(request->getTunerId()), request->getPid(), request->getTableId(),
                         request->getTableIdExt()));
  if (!filter->open(m_options.bufferSize)) {
    return 0;
  }
  const Clock::time_point now = Clock::now();
  const unsigned int seconds = request->getTimeOut() ? request->getTimeOut() : 1;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bShutdown || !m_deliveryThread.joinable()) {
      dvbLog("requestData: ERROR: the server is not running");
      return 0;
    }
    // Sent from a notification on the delivery thread, the request is
    // recorded before that thread can deliver again: no hold needed.
    const bool fromDelivery = std::this_thread::get_id() == m_deliveryThreadId;
    OpenFilter open;
    open.command = request;
    open.tunerId = request->getTunerId();
    open.pid = request->getPid();
    open.tableId = request->getTableId();
    open.tableIdExt = request->getTableIdExt();
    open.filter = std::move(filter);
    open.passFrom = fromDelivery ? now : now + std::chrono::milliseconds(m_options.filterStartMs);
    open.deadline = now + std::chrono::seconds(seconds);
    open.held = false;
    open.failed = false;
    open.tracking = false;
    open.shortForm = false;
    open.extension = 0;
    open.version = 0;
    open.lastSection = 0;
    m_mapFilters.insert(std::make_pair(++m_ullNextFilterId, std::move(open)));
    ++m_counters.filtersOpened;
  }
  wake();
  return 1;
}

int DvbServer::executeSyncRequest(int tunerId, short pid, short tableId, short tableIdExt,
                                  unsigned int timeOutMs) {
  std::vector<unsigned char> section;
  bool answered = false;
  if (isValidKey("requestDataSync", tunerId, pid)) {
    DvbDemuxFilter filter(demuxPath(tunerId), pid, tableId, tableIdExt);
    if (filter.open(m_options.bufferSize)) {
      const Clock::time_point deadline =
          Clock::now() + std::chrono::milliseconds(timeOutMs ? timeOutMs : m_options.syncTimeoutMs);
      for (;;) {
        const long long left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
          dvbLog("requestDataSync: no section of PID 0x%04X, table 0x%02X on tuner %d in time",
                 static_cast<unsigned short>(pid), static_cast<unsigned short>(tableId), tunerId);
          break;
        }
        pollfd entry = {filter.getFd(), POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(left));
        if (ready < 0 && errno != EINTR) {
          dvbLog("poll: ERROR: %s: %s", demuxPath(tunerId).c_str(), std::strerror(errno));
          break;
        }
        if (ready <= 0) {
          continue;
        }
        const DvbDemuxFilter::ReadResult result = filter.read(&section);
        if (result == DvbDemuxFilter::kSection) {
          answered = true;
          break;
        }
        if (result == DvbDemuxFilter::kFailed || (entry.revents & (POLLHUP | POLLNVAL)) ||
            (result == DvbDemuxFilter::kNothing && (entry.revents & POLLERR))) {
          dvbLog("poll: ERROR: %s: the device reports an error or hung up",
                 demuxPath(tunerId).c_str());
          break;
        }
      }
    }  // the filter closes here, before anything is called
  }
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++(answered ? m_counters.syncAnswered : m_counters.syncRefused);
  }
  if (!answered) {
    return 0;
  }
  GingaDataDestination* destination = getDataDestination();
  if (destination) {
    destination->injectData(tunerId, pid, tableId, tableIdExt, NULL, &section[0],
                            static_cast<unsigned int>(section.size()));
  }
  return 1;
}

int DvbServer::executeTunerList(TCommand** response) {
  if (!response) {
    return 0;
  }
  std::unique_ptr<TGetTunerListResponse> list(new TGetTunerListResponse());
  for (size_t i = 0; i < m_vecAdapters.size(); ++i) {
    unsigned char type = DvbFrontend::kUnknown;
    std::string name;
    if (DvbFrontend::probe(m_vecAdapters[i] + "/frontend0", &type, &name)) {
      list->addTuner(static_cast<int>(i), type);
    }
  }
  if (list->getTunerCounter() == 0 && !m_vecAdapters.empty()) {
    dvbLog("getTunerList: ERROR: no adapter's frontend answered");
    return 0;
  }
  *response = list.release();
  return 1;
}

}  // namespace Ostrel
