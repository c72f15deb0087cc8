// Video size commands: one synchronous command each. Values go to the server
// and come back from its answer unchanged; the core neither clips nor checks
// them, and writes the caller's outputs only from an answer that arrived.
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

namespace Ostrel {

namespace {

const CommandMessages kGetVideoSize = {"%s: getVideoSize: ERROR: Could not create command.",
                                       "%s: getVideoSize: ERROR: Could not request data.",
                                       "%s: getVideoSize: ERROR: No answer received."};
const CommandMessages kGetDefaultVideoSize = {
    "%s: getDefaultVideoSize: ERROR: Could not create command.",
    "%s: getDefaultVideoSize: ERROR: Could not request data.",
    "%s: getDefaultVideoSize: ERROR: No answer received."};
const CommandMessages kGetSourceVideoSize = {
    "%s: getSourceVideoSize: ERROR: Could not create command.",
    "%s: getSourceVideoSize: ERROR: Could not request data.",
    "%s: getSourceVideoSize: ERROR: No answer received."};
const CommandMessages kSetVideoSize = {"%s: setVideoSize: ERROR: Could not create command.",
                                       "%s: setVideoSize: ERROR: Could not request data.", 0};
const CommandMessages kCheckVideoSize = {"%s: checkVideoSize: ERROR: Could not create command.",
                                         "%s: checkVideoSize: ERROR: Could not request data.",
                                         "%s: checkVideoSize: ERROR: No answer received."};

// A geometry handed to the server: source and destination rectangles.
struct Geometry {
  short sx;
  short sy;
  unsigned short sw;
  unsigned short sh;
  short dx;
  short dy;
  unsigned short dw;
  unsigned short dh;
};

// The caller's variables that receive a geometry from an answer.
struct GeometryOutputs {
  short* sx;
  short* sy;
  unsigned short* sw;
  unsigned short* sh;
  short* dx;
  short* dy;
  unsigned short* dw;
  unsigned short* dh;
};

// Fill step of the operations that only name the video.
class FillVideo {
 public:
  FillVideo(unsigned short tsId, unsigned short layerId) : m_usTsId(tsId), m_usLayerId(layerId) {}

  void operator()(TVideoCommand* command) const {
    command->setTsId(m_usTsId);
    command->setLayerId(m_usLayerId);
  }

 private:
  unsigned short m_usTsId;
  unsigned short m_usLayerId;
};

// Fill step of the operations that also submit a geometry: the video first,
// then source position and size, then destination position and size.
class FillVideoAndGeometry {
 public:
  FillVideoAndGeometry(unsigned short tsId, unsigned short layerId, const Geometry& geometry)
      : m_fillVideo(tsId, layerId), m_geometry(geometry) {}

  void operator()(TVideoCommand* command) const {
    m_fillVideo(command);
    command->setSx(m_geometry.sx);
    command->setSy(m_geometry.sy);
    command->setSw(m_geometry.sw);
    command->setSh(m_geometry.sh);
    command->setDx(m_geometry.dx);
    command->setDy(m_geometry.dy);
    command->setDw(m_geometry.dw);
    command->setDh(m_geometry.dh);
  }

 private:
  FillVideo m_fillVideo;
  Geometry m_geometry;
};

// Read step that copies all eight values of the answer, in rectangle order.
// Without an answer it writes nothing and reports the answer missing.
class ReadGeometry {
 public:
  explicit ReadGeometry(const GeometryOutputs& outputs) : m_outputs(outputs) {}

  bool operator()(TVideoCommand* answer) const {
    if (!answer) {
      return false;
    }
    *m_outputs.sx = answer->getSx();
    *m_outputs.sy = answer->getSy();
    *m_outputs.sw = answer->getSw();
    *m_outputs.sh = answer->getSh();
    *m_outputs.dx = answer->getDx();
    *m_outputs.dy = answer->getDy();
    *m_outputs.dw = answer->getDw();
    *m_outputs.dh = answer->getDh();
    return true;
  }

 private:
  GeometryOutputs m_outputs;
};

// Read step that copies only the size of the source picture.
class ReadSourceSize {
 public:
  ReadSourceSize(unsigned short* outSw, unsigned short* outSh) : m_pSw(outSw), m_pSh(outSh) {}

  bool operator()(TVideoCommand* answer) const {
    if (!answer) {
      return false;
    }
    *m_pSw = answer->getSw();
    *m_pSh = answer->getSh();
    return true;
  }

 private:
  unsigned short* m_pSw;
  unsigned short* m_pSh;
};

}  // namespace

int OstrelGingaCommonCore::getVideoSize(unsigned short tsId, unsigned short layerId, short* outSx,
                                        short* outSy, unsigned short* outSw, unsigned short* outSh,
                                        short* outDx, short* outDy, unsigned short* outDw,
                                        unsigned short* outDh, short* errorCode) {
  const GeometryOutputs outputs = {outSx, outSy, outSw, outSh, outDx, outDy, outDw, outDh};
  return CommandDispatch::run<TVideoGetSize>(getServer(), TVideoGetSize::kCode, kGetVideoSize,
                                             FillVideo(tsId, layerId), ReadGeometry(outputs),
                                             errorCode);
}

int OstrelGingaCommonCore::getDefaultVideoSize(unsigned short tsId, unsigned short layerId,
                                               short* outSx, short* outSy, unsigned short* outSw,
                                               unsigned short* outSh, short* outDx, short* outDy,
                                               unsigned short* outDw, unsigned short* outDh,
                                               short* errorCode) {
  const GeometryOutputs outputs = {outSx, outSy, outSw, outSh, outDx, outDy, outDw, outDh};
  return CommandDispatch::run<TVideoGetDefaultSize>(getServer(), TVideoGetDefaultSize::kCode,
                                                    kGetDefaultVideoSize, FillVideo(tsId, layerId),
                                                    ReadGeometry(outputs), errorCode);
}

int OstrelGingaCommonCore::getSourceVideoSize(unsigned short tsId, unsigned short layerId,
                                              unsigned short* outSw, unsigned short* outSh,
                                              short* errorCode) {
  return CommandDispatch::run<TVideoGetSourceVideoSize>(
      getServer(), TVideoGetSourceVideoSize::kCode, kGetSourceVideoSize, FillVideo(tsId, layerId),
      ReadSourceSize(outSw, outSh), errorCode);
}

int OstrelGingaCommonCore::setVideoSize(unsigned short tsId, unsigned short layerId, short sx,
                                        short sy, unsigned short sw, unsigned short sh, short dx,
                                        short dy, unsigned short dw, unsigned short dh,
                                        short* errorCode) {
  const Geometry geometry = {sx, sy, sw, sh, dx, dy, dw, dh};
  return CommandDispatch::run<TVideoSetSize>(getServer(), TVideoSetSize::kCode, kSetVideoSize,
                                             FillVideoAndGeometry(tsId, layerId, geometry),
                                             CommandDispatch::IgnoreAnswer<TVideoSetSize>(),
                                             errorCode);
}

int OstrelGingaCommonCore::checkVideoSize(unsigned short tsId, unsigned short layerId, short sx,
                                          short sy, unsigned short sw, unsigned short sh, short dx,
                                          short dy, unsigned short dw, unsigned short dh,
                                          short* outSx, short* outSy, unsigned short* outSw,
                                          unsigned short* outSh, short* outDx, short* outDy,
                                          unsigned short* outDw, unsigned short* outDh,
                                          short* errorCode) {
  const Geometry geometry = {sx, sy, sw, sh, dx, dy, dw, dh};
  const GeometryOutputs outputs = {outSx, outSy, outSw, outSh, outDx, outDy, outDw, outDh};
  return CommandDispatch::run<TVideoCheckSize>(getServer(), TVideoCheckSize::kCode, kCheckVideoSize,
                                               FillVideoAndGeometry(tsId, layerId, geometry),
                                               ReadGeometry(outputs), errorCode);
}

}  // namespace Ostrel
