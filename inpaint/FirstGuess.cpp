// The first guess of a recipe: every hole pixel coloured like its nearest known pixel.
#include "inpaint/FirstGuess.h"

#include <algorithm>
#include <cassert>

#include "tv/Offsets.h"

namespace quorblen {

ImageBuffer nearestKnownFill(const ImageBuffer& colour, const HoleFlags& hole) {
    const int width = colour.width;
    const int height = colour.height;
    assert(hole.size() == std::size_t(width) * height);
    // Every pixel's donor index; the search grows from every known pixel at once, so each hole
    // pixel takes the colour of the known pixel whose search reaches it first.
    std::vector<int> source(hole.size(), -1);
    std::vector<int> queue;
    queue.reserve(hole.size());
    for (std::size_t i = 0; i < hole.size(); ++i) {
        if (!hole[i]) {
            source[i] = int(i);
            queue.push_back(int(i));
        }
    }
    assert(!queue.empty());
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const int i = queue[head];
        const int x = i % width;
        const int y = i / width;
        for (const Offset& n : NeighbourOffsets) {
            const int nx = x + n.dx;
            const int ny = y + n.dy;
            if (nx >= 0 && nx < width && ny >= 0 && ny < height && source[ny * width + nx] < 0) {
                source[ny * width + nx] = source[i];
                queue.push_back(ny * width + nx);
            }
        }
    }
    ImageBuffer guess(colour);
    for (std::size_t i = 0; i < hole.size(); ++i) {
        std::copy_n(colour.data + std::size_t(source[i]) * colour.channels, colour.channels,
                    guess.data + i * colour.channels);
    }
    return guess;
}

ImageBuffer firstGuessWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                                   const Region& region) {
    // When every flagged pixel lies a pixel inside the region, the search runs over the
    // region's part inside the image only: a hole pixel's colour comes from a known pixel next
    // to the hole, which lies there too, and that part's known pixels enter the search in the
    // order the whole image's would. The same first guess, at the cost of the region rather
    // than of the image. (A source's own mask may flag pixels anywhere.)
    const Region inner{region.x0 + 1, region.y0 + 1, region.x1 - 1, region.y1 - 1};
    bool within = true;
    for (int y = 0; y < image.height && within; ++y) {
        for (int x = 0; x < image.width && within; ++x) {
            within = !hole[std::size_t(y) * image.width + x] ||
                     (x >= inner.x0 && x < inner.x1 && y >= inner.y0 && y < inner.y1);
        }
    }
    const Region inside =
        within ? Region{std::max(region.x0, 0), std::max(region.y0, 0),
                        std::min(region.x1, image.width), std::min(region.y1, image.height)}
               : Region{0, 0, image.width, image.height};
    const int width = inside.x1 - inside.x0;
    const int height = inside.y1 - inside.y0;
    ImageBuffer part(width, height, image.channels);
    HoleFlags partHole(std::size_t(width) * height);
    for (int y = 0; y < height; ++y) {
        std::copy_n(image.data + std::ptrdiff_t(y + inside.y0) * image.stride +
                        std::ptrdiff_t(inside.x0) * image.channels,
                    std::ptrdiff_t(width) * image.channels,
                    part.data + std::ptrdiff_t(y) * part.stride);
        std::copy_n(hole.begin() + std::ptrdiff_t(y + inside.y0) * image.width + inside.x0, width,
                    partHole.begin() + std::ptrdiff_t(y) * width);
    }
    const Region shifted{region.x0 - inside.x0, region.y0 - inside.y0, region.x1 - inside.x0,
                         region.y1 - inside.y0};
    return cropWorkingImage(nearestKnownFill(colourPlanes(part, alphaPlane), partHole), partHole,
                            shifted);
}

}  // namespace quorblen
