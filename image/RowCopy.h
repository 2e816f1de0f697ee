// Copying one plane of an interleaved image row into a host row span.
#pragma once

namespace quorblen {

/// Copies plane `plane` of the interleaved `line` (`channels` samples per pixel) to
/// out[x .. r-1]. Two pixels per pass with a trailing one for odd spans.
inline void copyPlaneToRow(const float* line, int channels, int plane, int x, int r, float* out) {
    const float* in = line + plane;
    int X = x;
    for (; X + 1 < r; X += 2) {
        out[X] = in[X * channels];
        out[X + 1] = in[(X + 1) * channels];
    }
    if (X < r) {
        out[X] = in[X * channels];
    }
}

}  // namespace quorblen
