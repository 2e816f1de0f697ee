// The first guess of a recipe: every hole pixel coloured like its nearest known pixel.
#include "inpaint/FirstGuess.h"

#include <algorithm>
#include <cassert>

#include "tv/Offsets.h"

namespace quorblen {

std::vector<GuessSource> nearestKnownPixels(const HoleFlags& hole, int width, int height,
                                            const Region& box) {
    assert(hole.size() == std::size_t(width) * height);
    const int boxWidth = box.x1 - box.x0;
    // The hole pixels of the box the search has not reached yet.
    HoleFlags waiting(std::size_t(boxWidth) * (box.y1 - box.y0));
    for (int y = box.y0; y < box.y1; ++y) {
        const auto row = hole.begin() + std::ptrdiff_t(y) * width;
        std::copy(row + box.x0, row + box.x1,
                  waiting.begin() + std::ptrdiff_t(y - box.y0) * boxWidth);
    }
    // The search from every known pixel at once, in index order: a known pixel without a hole
    // pixel beside it reaches nothing, so the queue starts with the others alone, which keeps
    // the order in which the hole pixels are reached.
    std::vector<GuessSource> queue;
    for (int y = box.y0; y < box.y1; ++y) {
        for (int x = box.x0; x < box.x1; ++x) {
            const std::size_t i = std::size_t(y) * width + x;
            if (hole[i]) {
                continue;
            }
            const bool besideHole =
                std::any_of(NeighbourOffsets.begin(), NeighbourOffsets.end(), [&](const Offset& n) {
                    const int nx = x + n.dx;
                    const int ny = y + n.dy;
                    return nx >= 0 && nx < width && ny >= 0 && ny < height &&
                           hole[std::size_t(ny) * width + nx];
                });
            if (besideHole) {
                queue.push_back({i, i});
            }
        }
    }
    // No known pixel beside the hole: then there is no hole (a source's clear mask).
    assert(!queue.empty() ||
           std::none_of(hole.begin(), hole.end(), [](auto flagged) { return bool(flagged); }));
    const std::size_t seeds = queue.size();
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const int x = int(queue[head].pixel % std::size_t(width));
        const int y = int(queue[head].pixel / std::size_t(width));
        for (const Offset& n : NeighbourOffsets) {
            const int nx = x + n.dx;
            const int ny = y + n.dy;
            if (nx >= 0 && nx < width && ny >= 0 && ny < height &&
                hole[std::size_t(ny) * width + nx]) {
                assert(nx >= box.x0 && nx < box.x1 && ny >= box.y0 && ny < box.y1);
                std::uint8_t& unreached =
                    waiting[std::size_t(ny - box.y0) * boxWidth + (nx - box.x0)];
                if (unreached) {
                    unreached = 0;
                    queue.push_back({std::size_t(ny) * width + nx, queue[head].source});
                }
            }
        }
    }
    queue.erase(queue.begin(), queue.begin() + std::ptrdiff_t(seeds));
    return queue;
}

ImageBuffer firstGuessWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                                   const Region& region) {
    // When every flagged pixel lies a pixel inside the region, the search runs over the
    // region's part inside the image only (nearestKnownPixels gives the same answer there as
    // over the whole image). A source's own mask may flag pixels anywhere: then the whole image.
    const Region inner{region.x0 + 1, region.y0 + 1, region.x1 - 1, region.y1 - 1};
    bool within = true;
    for (int y = 0; y < image.height && within; ++y) {
        for (int x = 0; x < image.width && within; ++x) {
            within = !hole[std::size_t(y) * image.width + x] ||
                     (x >= inner.x0 && x < inner.x1 && y >= inner.y0 && y < inner.y1);
        }
    }
    const Region searched = within ? insideImage(region, image.width, image.height)
                                   : Region{0, 0, image.width, image.height};
    return cropWorkingImage(image, alphaPlane, hole, region,
                            nearestKnownPixels(hole, image.width, image.height, searched));
}

}  // namespace quorblen
