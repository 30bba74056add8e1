// Anti-aliased filling of polygons for KyCanvas: the coverage of each pixel, as a mask that the
// canvas blends a colour through. Pure; any thread.
#ifndef KY_CANVAS_POLYGON_H
#define KY_CANVAS_POLYGON_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ky {

struct PolygonPoint {
    double x = 0;
    double y = 0;
};

/* Coverage 0 to 255 of the pixels from left, top on, width x height of them, rows top-down. */
struct CoverageMask {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> coverage;
};

/* The most corners of one polygon. */
constexpr size_t kLargestPolygon = 1024;

/* The polygon's coverage of the pixels of a canvasWidth x canvasHeight canvas, the nonzero winding
 * rule deciding what is inside; empty where it misses the canvas. Points beyond the canvas are
 * clipped, not refused; the caller bounds the number of points. */
CoverageMask coverPolygon(const std::vector<PolygonPoint>& points, int canvasWidth, int canvasHeight);

}  // namespace ky

#endif
