#ifndef OSTREL_SIM_RECEIVER_CONTROLS_H
#define OSTREL_SIM_RECEIVER_CONTROLS_H

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "VideoGeometry.h"

namespace Ostrel {

class TCommand;

// The receiver's state beside its section filters, and the commands that
// read or change it. Keys: a key held by one listener is refused to another
// until released. Application status changes are recorded in order. Video:
// one geometry per (transport stream, layer), full screen by default; setting
// and checking a geometry clip it to the screen. Tuners: as added.
// Thread-safe: one lock of its own, held only inside each operation.
class ReceiverControls {
 public:
  ReceiverControls(unsigned short screenWidth, unsigned short screenHeight,
                   unsigned short sourceWidth, unsigned short sourceHeight);

  // Executes a key, status, video or tuner-list command; 0 for any other.
  int execute(TCommand* command, TCommand** response);

  void addTuner(int tunerId, unsigned char type);
  // The listener holding a key, or "" when it is free.
  std::string getKeyHolder(unsigned int keyCode) const;
  // Every application status change, in order: application id and code.
  std::vector<std::pair<std::string, unsigned char>> getAppStatusChanges() const;

 private:
  int executeKey(TCommand* command);
  int executeVideo(TCommand* command, TCommand** response);
  int executeTunerList(TCommand** response);
  // REQUIRES: m_mutex held.
  VideoGeometry __getGeometry(unsigned short tsId, unsigned short layerId) const;

  const unsigned short m_usScreenWidth;
  const unsigned short m_usScreenHeight;
  const unsigned short m_usSourceWidth;
  const unsigned short m_usSourceHeight;

  mutable std::mutex m_mutex;  // guards every field below
  std::map<unsigned int, std::string> m_mapKeys;
  std::vector<std::pair<std::string, unsigned char>> m_vecAppStatus;
  std::map<std::pair<unsigned short, unsigned short>, VideoGeometry> m_mapVideo;
  std::vector<std::pair<int, unsigned char>> m_vecTuners;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_RECEIVER_CONTROLS_H
