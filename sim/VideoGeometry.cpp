#include "VideoGeometry.h"

#include <stdint.h>

namespace Ostrel {

namespace {

// Cuts the span [start, start + length) to [0, limit); reports how much was
// cut at each end.
void clipSpan(short* start, unsigned short* length, unsigned short limit, int64_t* cutLow,
              int64_t* cutHigh) {
  int64_t low = *start;
  int64_t high = low + *length;
  int64_t newLow = low < 0 ? 0 : low;
  int64_t newHigh = high > limit ? limit : high;
  if (newHigh <= newLow) {
    *cutLow = *length;
    *cutHigh = 0;
    *start = static_cast<short>(newLow > limit ? limit : newLow);
    *length = 0;
    return;
  }
  *cutLow = newLow - low;
  *cutHigh = high - newHigh;
  *start = static_cast<short>(newLow);
  *length = static_cast<unsigned short>(newHigh - newLow);
}

// Takes from the source span the share of it that the destination lost.
void cropSource(short* start, unsigned short* length, unsigned short destLength, int64_t cutLow,
                int64_t cutHigh) {
  int64_t total = destLength;
  if (total == 0) {
    return;
  }
  int64_t low = cutLow * *length / total;
  int64_t high = cutHigh * *length / total;
  int64_t remaining = *length - low - high;
  *start = static_cast<short>(*start + low);
  *length = static_cast<unsigned short>(remaining > 0 ? remaining : 0);
}

}  // namespace

VideoGeometry VideoGeometry::fullScreen(unsigned short sourceW, unsigned short sourceH,
                                        unsigned short screenW, unsigned short screenH) {
  VideoGeometry g;
  g.source.w = sourceW;
  g.source.h = sourceH;
  g.destination.w = screenW;
  g.destination.h = screenH;
  return g;
}

VideoGeometry VideoGeometry::clipped(unsigned short sourceW, unsigned short sourceH,
                                     unsigned short screenW, unsigned short screenH) const {
  VideoGeometry g = *this;
  int64_t lowX = 0, highX = 0, lowY = 0, highY = 0;
  unsigned short destW = g.destination.w;
  unsigned short destH = g.destination.h;
  clipSpan(&g.destination.x, &g.destination.w, screenW, &lowX, &highX);
  clipSpan(&g.destination.y, &g.destination.h, screenH, &lowY, &highY);
  if (g.destination.w == 0 || g.destination.h == 0) {
    g.destination.w = 0;
    g.destination.h = 0;
    g.source.w = 0;
    g.source.h = 0;
    int64_t unused = 0;
    clipSpan(&g.source.x, &g.source.w, sourceW, &unused, &unused);
    clipSpan(&g.source.y, &g.source.h, sourceH, &unused, &unused);
    return g;
  }
  cropSource(&g.source.x, &g.source.w, destW, lowX, highX);
  cropSource(&g.source.y, &g.source.h, destH, lowY, highY);
  int64_t unused = 0;
  clipSpan(&g.source.x, &g.source.w, sourceW, &unused, &unused);
  clipSpan(&g.source.y, &g.source.h, sourceH, &unused, &unused);
  return g;
}

}  // namespace Ostrel
