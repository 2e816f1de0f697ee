// The search for the pixel nearest to a given one that holds a given value.
#pragma once

#include "image/ImageBuffer.h"

namespace quorblen {

/// Looks for the pixel nearest to (x, y) whose sample c approxEquals `value`. Four scans
/// leave (x, y) left, right, up and down, each stopping at its first match, after `radius`
/// examined pixels or at the image edge; once anything matched, each later scan is limited to
/// the distance of the nearest match so far. The box of the four scan ends is then searched
/// row by row for the match at the smallest squared distance, ties kept in row-major order.
/// `radius` <= 0 means width + height. (x, y) may lie outside the image (nothing is found
/// along a row or column that misses it); 0 <= c < channels.
/// Returns 1 when any pixel matched, else 0. outX and outY are written only for a match at
/// a squared distance below width + height, and are left as they were otherwise.
int nearestPixelWithValue(const ImageBuffer& image, int c, int x, int y, int& outX, int& outY,
                          int radius, float value);

}  // namespace quorblen
