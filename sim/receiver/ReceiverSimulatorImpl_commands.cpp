// The data requests of the command library, as the simulated receiver executes
// them; the other commands go to its controls.
#include "GingaDataDestination.h"
#include "ReceiverSimulatorImpl.h"
#include "TDataRequestCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TsPacket.h"
#include "TunerInput.h"

namespace Ostrel {

int ReceiverSimulator::Impl::execute(TCommand* command, TCommand** response) {
  if (!command) {
    return 0;
  }
  // In flight for waitBusyCommands until it returns, on every path.
  struct Scope {
    explicit Scope(Impl* simulator) : m_pSimulator(simulator) { m_pSimulator->beginExecute(); }
    ~Scope() { m_pSimulator->endExecute(); }
    Impl* m_pSimulator;
  } scope(this);
  int result = 0;
  switch (command->getCode()) {
    case TDataRequestCommand::kCode: {
      TDataRequestCommand* request = static_cast<TDataRequestCommand*>(command);
      result = request->getOpen()
                   ? executeOpenRequest(request)
                   : executeSyncRequest(request->getTunerId(), request->getPid(),
                                        request->getTableId(), request->getTableIdExt());
      break;
    }
    case TSyncDataRequestCommand::kCode: {
      TSyncDataRequestCommand* request = static_cast<TSyncDataRequestCommand*>(command);
      result = executeSyncRequest(request->getTunerId(), request->getPid(), request->getTableId(),
                                  request->getTableIdExt());
      break;
    }
    default:
      result = m_controls.execute(command, response);
      break;
  }
  if (!result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counters.commandsRefused;
  }
  return result;
}

int ReceiverSimulator::Impl::executeOpenRequest(TDataRequestCommand* command) {
  TunerInput* tuner = getTuner(command->getTunerId());
  unsigned short pid = static_cast<unsigned short>(command->getPid());
  if (!tuner || pid >= TsPacket::kPidCount) {
    return 0;  // refused: the command library closes the request
  }
  const Clock::time_point now = Clock::now();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bShutdown) {
      return 0;
    }
    // Sent from a notification on the delivery thread, the request is
    // recorded before that thread can deliver again: no start-up time needed.
    const bool fromDelivery = std::this_thread::get_id() == m_deliveryThreadId;
    OpenFilter open = {
        command,
        SectionFilter(command->getTunerId(), command->getPid(), command->getTableId(),
                      command->getTableIdExt()),
        fromDelivery ? now : now + std::chrono::milliseconds(m_options.filterStartMs),
        now + std::chrono::seconds(command->getTimeOut())};
    m_mapFilters.insert(std::make_pair(++m_ullNextFilterId, open));
    ++m_counters.filtersOpened;
  }
  m_condDelivery.notify_all();
  tuner->getDemux()->enablePid(pid);
  return 1;
}

int ReceiverSimulator::Impl::executeSyncRequest(int tunerId, short pid, short tableId,
                                                short tableIdExt) {
  unsigned short wirePid = static_cast<unsigned short>(pid);
  if (!getTuner(tunerId) || wirePid >= TsPacket::kPidCount) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counters.syncRefused;
    return 0;
  }
  SectionFilter filter(tunerId, pid, tableId, tableIdExt);
  std::vector<std::vector<unsigned char>> found;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    CarriedKey first(std::make_pair(tunerId, wirePid), std::make_pair(0u, 0u));
    for (std::map<CarriedKey, std::vector<unsigned char>>::iterator it =
             m_mapCarried.lower_bound(first);
         it != m_mapCarried.end() && it->first.first == first.first; ++it) {
      const std::vector<unsigned char>& section = it->second;
      if (!filter.matches(tunerId, wirePid, &section[0],
                          static_cast<unsigned int>(section.size()))) {
        continue;
      }
      std::vector<unsigned char> copy(section);
      if (__applyFaults(wirePid, &copy)) {
        found.push_back(copy);
      }
    }
    if (found.empty()) {
      ++m_counters.syncRefused;
      return 0;
    }
    ++m_counters.syncAnswered;
  }
  GingaDataDestination* destination = m_pServer->getDataDestination();
  for (size_t i = 0; destination && i < found.size(); ++i) {
    destination->injectData(tunerId, pid, tableId, tableIdExt, NULL, &found[i][0],
                            static_cast<unsigned int>(found[i].size()));
  }
  return 1;
}

}  // namespace Ostrel
