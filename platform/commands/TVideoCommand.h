#ifndef OSTREL_T_VIDEO_COMMAND_H
#define OSTREL_T_VIDEO_COMMAND_H

#include "TCommand.h"

namespace Ostrel {

// Base of the video size family: the video (transport stream and layer) and a
// geometry (source and destination rectangles). An answer is an object of the
// command's own class, filled by the server with the same setters.
class TVideoCommand : public TCommand {
 protected:
  explicit TVideoCommand(unsigned short code);

 public:
  virtual ~TVideoCommand();

  void setTsId(unsigned short tsId) { m_usTsId = tsId; }
  unsigned short getTsId() const { return m_usTsId; }
  void setLayerId(unsigned short layerId) { m_usLayerId = layerId; }
  unsigned short getLayerId() const { return m_usLayerId; }
  void setSx(short sx) { m_sSx = sx; }
  short getSx() const { return m_sSx; }
  void setSy(short sy) { m_sSy = sy; }
  short getSy() const { return m_sSy; }
  void setSw(unsigned short sw) { m_usSw = sw; }
  unsigned short getSw() const { return m_usSw; }
  void setSh(unsigned short sh) { m_usSh = sh; }
  unsigned short getSh() const { return m_usSh; }
  void setDx(short dx) { m_sDx = dx; }
  short getDx() const { return m_sDx; }
  void setDy(short dy) { m_sDy = dy; }
  short getDy() const { return m_sDy; }
  void setDw(unsigned short dw) { m_usDw = dw; }
  unsigned short getDw() const { return m_usDw; }
  void setDh(unsigned short dh) { m_usDh = dh; }
  unsigned short getDh() const { return m_usDh; }

 private:
  unsigned short m_usTsId;
  unsigned short m_usLayerId;
  short m_sSx;
  short m_sSy;
  unsigned short m_usSw;
  unsigned short m_usSh;
  short m_sDx;
  short m_sDy;
  unsigned short m_usDw;
  unsigned short m_usDh;
};

}  // namespace Ostrel

#endif  // OSTREL_T_VIDEO_COMMAND_H
