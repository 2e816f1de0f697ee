// The first guess of a recipe: every hole pixel coloured like its nearest known pixel.
#include "inpaint/FirstGuess.h"

#include <algorithm>
#include <cassert>

#include "tv/Offsets.h"

namespace quorblen {

std::vector<std::size_t> nearestKnownPixels(const HoleFlags& hole, int width, int height,
                                            const Region& box) {
    assert(hole.size() == std::size_t(width) * height);
    const int boxWidth = box.x1 - box.x0;
    const auto local = [&](int x, int y) {
        return std::size_t(y - box.y0) * boxWidth + (x - box.x0);
    };
    constexpr std::size_t None = ~std::size_t(0);
    std::vector<std::size_t> source(std::size_t(boxWidth) * (box.y1 - box.y0), None);
    // The search from every known pixel at once, in index order: a known pixel without a hole
    // pixel beside it reaches nothing, so the queue starts with the others alone, which keeps
    // the order in which the hole pixels are reached.
    std::vector<std::size_t> queue;  // indices into the image
    for (int y = box.y0; y < box.y1; ++y) {
        for (int x = box.x0; x < box.x1; ++x) {
            const std::size_t i = std::size_t(y) * width + x;
            if (hole[i]) {
                continue;
            }
            source[local(x, y)] = i;
            const bool besideHole =
                std::any_of(NeighbourOffsets.begin(), NeighbourOffsets.end(), [&](const Offset& n) {
                    const int nx = x + n.dx;
                    const int ny = y + n.dy;
                    return nx >= 0 && nx < width && ny >= 0 && ny < height &&
                           hole[std::size_t(ny) * width + nx];
                });
            if (besideHole) {
                queue.push_back(i);
            }
        }
    }
    assert(!queue.empty());
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const int x = int(queue[head] % std::size_t(width));
        const int y = int(queue[head] / std::size_t(width));
        for (const Offset& n : NeighbourOffsets) {
            const int nx = x + n.dx;
            const int ny = y + n.dy;
            if (nx >= 0 && nx < width && ny >= 0 && ny < height &&
                hole[std::size_t(ny) * width + nx] && source[local(nx, ny)] == None) {
                assert(nx >= box.x0 && nx < box.x1 && ny >= box.y0 && ny < box.y1);
                source[local(nx, ny)] = source[local(x, y)];
                queue.push_back(std::size_t(ny) * width + nx);
            }
        }
    }
    return source;
}

ImageBuffer firstGuessWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                                   const Region& region) {
    return cropWorkingImage(image, alphaPlane, hole, region,
                            nearestKnownPixels(hole, image.width, image.height,
                                               insideImage(region, image.width, image.height)));
}

}  // namespace quorblen
