#ifndef OSTREL_SIM_VIDEO_GEOMETRY_H
#define OSTREL_SIM_VIDEO_GEOMETRY_H

namespace Ostrel {

// The placement of the video picture: the part of the source picture shown
// (source rectangle) and where on the screen it goes (destination rectangle).
struct VideoGeometry {
  struct Rect {
    short x = 0;
    short y = 0;
    unsigned short w = 0;
    unsigned short h = 0;
  };

  Rect source;
  Rect destination;

  // The full source shown on the full screen.
  static VideoGeometry fullScreen(unsigned short sourceW, unsigned short sourceH,
                                  unsigned short screenW, unsigned short screenH);

  // The geometry as the screen can show it: the destination is cut to the
  // screen and the source loses the matching share of its picture, so the
  // visible part keeps its scale; the source is then cut to the source
  // picture. A rectangle wholly off screen comes back with zero size.
  VideoGeometry clipped(unsigned short sourceW, unsigned short sourceH, unsigned short screenW,
                        unsigned short screenH) const;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_VIDEO_GEOMETRY_H
