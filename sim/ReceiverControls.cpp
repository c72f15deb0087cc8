#include "ReceiverControls.h"

#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

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

ReceiverControls::ReceiverControls(unsigned short screenWidth, unsigned short screenHeight,
                                   unsigned short sourceWidth, unsigned short sourceHeight)
    : m_usScreenWidth(screenWidth),
      m_usScreenHeight(screenHeight),
      m_usSourceWidth(sourceWidth),
      m_usSourceHeight(sourceHeight) {}

int ReceiverControls::execute(TCommand* command, TCommand** response) {
  switch (command->getCode()) {
    case TReserveKeyCommand::kCode:
    case TReleaseKeyCommand::kCode:
    case TNotifyStatusChange::kCode:
      return executeKey(command);
    case TVideoGetSize::kCode:
    case TVideoGetDefaultSize::kCode:
    case TVideoGetSourceVideoSize::kCode:
    case TVideoSetSize::kCode:
    case TVideoCheckSize::kCode:
      return executeVideo(command, response);
    case TGetTunerListCommand::kCode:
      return executeTunerList(response);
    default:
      return 0;
  }
}

void ReceiverControls::addTuner(int tunerId, unsigned char type) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_vecTuners.push_back(std::make_pair(tunerId, type));
}

std::string ReceiverControls::getKeyHolder(unsigned int keyCode) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::map<unsigned int, std::string>::const_iterator it = m_mapKeys.find(keyCode);
  return it == m_mapKeys.end() ? std::string() : it->second;
}

std::vector<std::pair<std::string, unsigned char>> ReceiverControls::getAppStatusChanges() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_vecAppStatus;
}

int ReceiverControls::executeKey(TCommand* command) {
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
VideoGeometry ReceiverControls::__getGeometry(unsigned short tsId, unsigned short layerId) const {
  std::map<std::pair<unsigned short, unsigned short>, VideoGeometry>::const_iterator it =
      m_mapVideo.find(std::make_pair(tsId, layerId));
  if (it != m_mapVideo.end()) {
    return it->second;
  }
  return VideoGeometry::fullScreen(m_usSourceWidth, m_usSourceHeight, m_usScreenWidth,
                                   m_usScreenHeight);
}

int ReceiverControls::executeVideo(TCommand* command, TCommand** response) {
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
                   VideoGeometry::fullScreen(m_usSourceWidth, m_usSourceHeight, m_usScreenWidth,
                                             m_usScreenHeight));
      answer(response, made);
      return 1;
    }
    case TVideoGetSourceVideoSize::kCode: {
      TVideoGetSourceVideoSize* made = new TVideoGetSourceVideoSize();
      made->setTsId(tsId);
      made->setLayerId(layerId);
      made->setSw(m_usSourceWidth);
      made->setSh(m_usSourceHeight);
      answer(response, made);
      return 1;
    }
    case TVideoSetSize::kCode:
      m_mapVideo[std::make_pair(tsId, layerId)] = readGeometry(video).clipped(
          m_usSourceWidth, m_usSourceHeight, m_usScreenWidth, m_usScreenHeight);
      return 1;
    case TVideoCheckSize::kCode: {
      TVideoCheckSize* made = new TVideoCheckSize();
      fillGeometry(made, tsId, layerId,
                   readGeometry(video).clipped(m_usSourceWidth, m_usSourceHeight, m_usScreenWidth,
                                               m_usScreenHeight));
      answer(response, made);
      return 1;
    }
    default:
      return 0;
  }
}

int ReceiverControls::executeTunerList(TCommand** response) {
  TGetTunerListResponse* made = new TGetTunerListResponse();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (size_t i = 0; i < m_vecTuners.size(); ++i) {
      made->addTuner(m_vecTuners[i].first, m_vecTuners[i].second);
    }
  }
  answer(response, made);
  return 1;
}

}  // namespace Ostrel
