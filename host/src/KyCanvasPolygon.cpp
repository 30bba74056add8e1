// Scan conversion with several sub-rows per pixel row and exact horizontal coverage: each sub-row's
// inside spans add their overlap with each pixel, which keeps edges smooth at any slope.
#include "KyCanvasPolygon.h"

#include <algorithm>
#include <cmath>

namespace ky {

namespace {

constexpr int kSubRows = 5;

struct Crossing {
    double x;
    int winding;
};

// Adds the span [from, to) of one sub-row to the row's coverage, in pixels of the mask.
void addSpan(std::vector<double>& row, double from, double to) {
    const double width = static_cast<double>(row.size());
    from = std::clamp(from, 0.0, width);
    to = std::clamp(to, 0.0, width);
    if (to <= from) return;
    const auto first = static_cast<size_t>(from);
    const auto last = std::min(static_cast<size_t>(to), row.size() - 1);
    for (size_t x = first; x <= last; ++x) {
        const double overlap = std::min(to, static_cast<double>(x + 1)) - std::max(from, static_cast<double>(x));
        if (overlap > 0) row[x] += overlap / kSubRows;
    }
}

}  // namespace

CoverageMask coverPolygon(const std::vector<PolygonPoint>& points, int canvasWidth, int canvasHeight) {
    CoverageMask mask;
    if (points.size() < 3) return mask;
    double minX = points[0].x, maxX = points[0].x, minY = points[0].y, maxY = points[0].y;
    for (const PolygonPoint& point : points) {
        if (!std::isfinite(point.x) || !std::isfinite(point.y)) return mask;
        minX = std::min(minX, point.x);
        maxX = std::max(maxX, point.x);
        minY = std::min(minY, point.y);
        maxY = std::max(maxY, point.y);
    }
    mask.left = static_cast<int>(std::clamp(std::floor(minX), 0.0, static_cast<double>(canvasWidth)));
    mask.top = static_cast<int>(std::clamp(std::floor(minY), 0.0, static_cast<double>(canvasHeight)));
    const int right = static_cast<int>(std::clamp(std::ceil(maxX), 0.0, static_cast<double>(canvasWidth)));
    const int bottom = static_cast<int>(std::clamp(std::ceil(maxY), 0.0, static_cast<double>(canvasHeight)));
    if (right <= mask.left || bottom <= mask.top) return CoverageMask{};
    mask.width = right - mask.left;
    mask.height = bottom - mask.top;
    mask.coverage.assign(static_cast<size_t>(mask.width) * mask.height, 0);

    std::vector<double> row(static_cast<size_t>(mask.width));
    std::vector<Crossing> crossings;
    for (int y = 0; y < mask.height; ++y) {
        std::fill(row.begin(), row.end(), 0.0);
        for (int sub = 0; sub < kSubRows; ++sub) {
            const double scanY = mask.top + y + (sub + 0.5) / kSubRows;
            crossings.clear();
            for (size_t i = 0; i < points.size(); ++i) {
                const PolygonPoint& a = points[i];
                const PolygonPoint& b = points[(i + 1) % points.size()];
                if ((a.y <= scanY) == (b.y <= scanY)) continue;
                const double x = a.x + (scanY - a.y) * (b.x - a.x) / (b.y - a.y);
                crossings.push_back({x - mask.left, b.y > a.y ? 1 : -1});
            }
            std::sort(crossings.begin(), crossings.end(), [](const Crossing& l, const Crossing& r) { return l.x < r.x; });
            int winding = 0;
            for (size_t i = 0; i + 1 < crossings.size(); ++i) {
                winding += crossings[i].winding;
                if (winding != 0) addSpan(row, crossings[i].x, crossings[i + 1].x);
            }
        }
        for (int x = 0; x < mask.width; ++x) {
            mask.coverage[static_cast<size_t>(y) * mask.width + x] =
                static_cast<uint8_t>(std::lround(std::min(1.0, row[x]) * 255));
        }
    }
    return mask;
}

}  // namespace ky
