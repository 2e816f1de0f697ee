// Pixel rectangles and image formats of the host.
#pragma once

#include <string>

namespace host {

/// A pixel rectangle: columns x .. r-1, rows y .. t-1.
struct Box {
    int x = 0;
    int y = 0;
    int r = 0;
    int t = 0;

    int w() const { return r - x; }
    int h() const { return t - y; }
    bool empty() const { return r <= x || t <= y; }
    bool operator==(const Box&) const = default;
};

/// The image format an operator produces: its box, a name, its size and pixel aspect ratio.
struct Format : Box {
    std::string name;
    int width = 1;
    int height = 1;
    double pixel_aspect = 1.0;

    Format() : Box{0, 0, 1, 1} {}
    Format(int w, int h, double aspect = 1.0)
        : Box{0, 0, w, h}, width(w), height(h), pixel_aspect(aspect) {}
};

}  // namespace host
