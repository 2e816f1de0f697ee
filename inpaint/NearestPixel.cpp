// The search for the pixel nearest to a given one that holds a given value.
#include "inpaint/NearestPixel.h"

#include <algorithm>
#include <cassert>

#include "inpaint/KernelSupport.h"
#include "inpaint/Measures.h"

namespace quorblen {
namespace {

/// Whether sample c of pixel (x, y) approxEquals `value`.
bool matches(const ImageBuffer& image, int c, int x, int y, float value) {
    return approxEqual(image.data[detail::sampleIndex(image, x, y, c)], value);
}

/// Walks from (x, y) by (dx, dy) until a match (setting `found`), `limit` examined pixels or
/// the image edge, and returns the end coordinate along the walk's axis: the matching pixel,
/// the first pixel not examined, or the first one outside the image.
int scanEnd(const ImageBuffer& image, int c, int x, int y, int dx, int dy, int limit, float value,
            int& found) {
    for (int examined = 0; examined < limit && detail::keepsMargin(image, x, y, 0); ++examined) {
        if (matches(image, c, x, y, value)) {
            found = 1;
            break;
        }
        x += dx;
        y += dy;
    }
    return dx != 0 ? x : y;
}

}  // namespace

int nearestPixelWithValue(const ImageBuffer& image, int c, int x, int y, int& outX, int& outY,
                          int radius, float value) {
    assert(c >= 0 && c < image.channels);
    const int far = image.width + image.height;
    int limit = radius > 0 ? radius : far;
    int found = 0;

    // Once anything matched, every later scan is bounded by the nearest match so far.
    const int left = scanEnd(image, c, x, y, -1, 0, limit, value, found);
    if (found != 0) {
        limit = std::min(limit, x - left);
    }
    const int right = scanEnd(image, c, x, y, +1, 0, limit, value, found);
    if (found != 0) {
        limit = std::min(limit, right - x);
    }
    const int top = scanEnd(image, c, x, y, 0, -1, limit, value, found);
    if (found != 0) {
        limit = std::min(limit, y - top);
    }
    const int bottom = scanEnd(image, c, x, y, 0, +1, limit, value, found);

    const int xmin = std::max(left, 0);
    const int xmax = std::min(right, image.width - 1);
    const int ymin = std::max(top, 0);
    const int ymax = std::min(bottom, image.height - 1);
    // Squared distances are compared with the plain width + height: a farther match counts
    // as found but reports no coordinates.
    int best = far;
    for (int yy = ymin; yy <= ymax; ++yy) {
        for (int xx = xmin; xx <= xmax; ++xx) {
            if (!matches(image, c, xx, yy, value)) {
                continue;
            }
            found = 1;
            const int dist2 = (xx - x) * (xx - x) + (yy - y) * (yy - y);
            if (dist2 < best) {
                best = dist2;
                outX = xx;
                outY = yy;
            }
        }
    }
    return found;
}

}  // namespace quorblen
