// The commands of the command library, as the simulated receiver executes them.
#include "GingaDataDestination.h"
#include "ReceiverSimulator.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"
#include "TsPacket.h"
#include "TunerInput.h"

namespace Ostrel {

namespace {

void fillGeometry(TVideoCommand* answer, unsigned short tsId, unsigned short layerId,
                  const VideoGeometry& g) {
  answer->setTsId(tsId);
  answer->setLayerId(layerId);
  answer->setSx(g.source.x);
  answer->setSy(g.source.y);
  answer->setSw(g.source.w);
  answer->setSh(g.source.h);
  answer->setDx(g.destination.x);
  answer->setDy(g.destination.y);
  answer->setDw(g.destination.w);
  answer->setDh(g.destination.h);
}

VideoGeometry readGeometry(const TVideoCommand* command) {
  VideoGeometry g;
  g.source.x = command->getSx();
  g.source.y = command->getSy();
  g.source.w = command->getSw();
  g.source.h = command->getSh();
  g.destination.x = command->getDx();
  g.destination.y = command->getDy();
  g.destination.w = command->getDw();
  g.destination.h = command->getDh();
  return g;
}

void answer(TCommand** response, TCommand* made) {
  if (response) {
    *response = made;
  } else {
    delete made;
  }
}

}  // namespace

int ReceiverSimulator::execute(TCommand* command, TCommand** response) {
  if (!command) {
    return 0;
  }
  // In flight for waitBusyCommands until it returns, on every path.
  struct Scope {
    explicit Scope(ReceiverSimulator* simulator) : m_pSimulator(simulator) {
      m_pSimulator->beginExecute();
    }
    ~Scope() { m_pSimulator->endExecute(); }
    ReceiverSimulator* m_pSimulator;
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
    case TReserveKeyCommand::kCode:
    case TReleaseKeyCommand::kCode:
    case TNotifyStatusChange::kCode:
      result = executeKey(command);
      break;
    case TVideoGetSize::kCode:
    case TVideoGetDefaultSize::kCode:
    case TVideoGetSourceVideoSize::kCode:
    case TVideoSetSize::kCode:
    case TVideoCheckSize::kCode:
      result = executeVideo(command, response);
      break;
    case TGetTunerListCommand::kCode:
      result = executeTunerList(response);
      break;
    default:
      result = 0;
      break;
  }
  if (!result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counters.commandsRefused;
  }
  return result;
}

int ReceiverSimulator::executeOpenRequest(TDataRequestCommand* command) {
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

int ReceiverSimulator::executeSyncRequest(int tunerId, short pid, short tableId, short tableIdExt) {
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
  GingaDataDestination* destination = getDataDestination();
  for (size_t i = 0; destination && i < found.size(); ++i) {
    destination->injectData(tunerId, pid, tableId, tableIdExt, NULL, &found[i][0],
                            static_cast<unsigned int>(found[i].size()));
  }
  return 1;
}

int ReceiverSimulator::executeKey(TCommand* command) {
  std::lock_guard<std::mutex> lock(m_mutex);
  switch (command->getCode()) {
    case TReserveKeyCommand::kCode: {
      TReserveKeyCommand* reserve = static_cast<TReserveKeyCommand*>(command);
      std::map<unsigned int, std::string>::iterator it = m_mapKeys.find(reserve->getKeyCode());
      if (it != m_mapKeys.end()) {
        return it->second == reserve->getListenerId() ? 1 : 0;
      }
      m_mapKeys[reserve->getKeyCode()] = reserve->getListenerId();
      return 1;
    }
    case TReleaseKeyCommand::kCode:
      return m_mapKeys.erase(static_cast<TReleaseKeyCommand*>(command)->getKeyCode()) ? 1 : 0;
    case TNotifyStatusChange::kCode: {
      TNotifyStatusChange* status = static_cast<TNotifyStatusChange*>(command);
      m_vecAppStatus.push_back(std::make_pair(status->getAppId(), status->getNotificationCode()));
      return 1;
    }
    default:
      return 0;
  }
}

// REQUIRES: m_mutex held.
VideoGeometry ReceiverSimulator::__getGeometry(unsigned short tsId, unsigned short layerId) const {
  std::map<std::pair<unsigned short, unsigned short>, VideoGeometry>::const_iterator it =
      m_mapVideo.find(std::make_pair(tsId, layerId));
  if (it != m_mapVideo.end()) {
    return it->second;
  }
  return VideoGeometry::fullScreen(m_options.sourceWidth, m_options.sourceHeight,
                                   m_options.screenWidth, m_options.screenHeight);
}

int ReceiverSimulator::executeVideo(TCommand* command, TCommand** response) {
  TVideoCommand* video = static_cast<TVideoCommand*>(command);
  const unsigned short tsId = video->getTsId();
  const unsigned short layerId = video->getLayerId();
  std::lock_guard<std::mutex> lock(m_mutex);
  switch (command->getCode()) {
    case TVideoGetSize::kCode: {
      TVideoGetSize* made = new TVideoGetSize();
      fillGeometry(made, tsId, layerId, __getGeometry(tsId, layerId));
      answer(response, made);
      return 1;
    }
    case TVideoGetDefaultSize::kCode: {
      TVideoGetDefaultSize* made = new TVideoGetDefaultSize();
      fillGeometry(made, tsId, layerId,
                   VideoGeometry::fullScreen(m_options.sourceWidth, m_options.sourceHeight,
                                             m_options.screenWidth, m_options.screenHeight));
      answer(response, made);
      return 1;
    }
    case TVideoGetSourceVideoSize::kCode: {
      TVideoGetSourceVideoSize* made = new TVideoGetSourceVideoSize();
      made->setTsId(tsId);
      made->setLayerId(layerId);
      made->setSw(m_options.sourceWidth);
      made->setSh(m_options.sourceHeight);
      answer(response, made);
      return 1;
    }
    case TVideoSetSize::kCode:
      m_mapVideo[std::make_pair(tsId, layerId)] =
          readGeometry(video).clipped(m_options.sourceWidth, m_options.sourceHeight,
                                      m_options.screenWidth, m_options.screenHeight);
      return 1;
    case TVideoCheckSize::kCode: {
      TVideoCheckSize* made = new TVideoCheckSize();
      fillGeometry(made, tsId, layerId,
                   readGeometry(video).clipped(m_options.sourceWidth, m_options.sourceHeight,
                                               m_options.screenWidth, m_options.screenHeight));
      answer(response, made);
      return 1;
    }
    default:
      return 0;
  }
}

int ReceiverSimulator::executeTunerList(TCommand** response) {
  TGetTunerListResponse* made = new TGetTunerListResponse();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (size_t i = 0; i < m_vecTuners.size(); ++i) {
      made->addTuner(m_vecTuners[i]->getTunerId(), m_vecTuners[i]->getType());
    }
  }
  answer(response, made);
  return 1;
}

}  // namespace Ostrel
