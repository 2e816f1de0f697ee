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
    return cropWorkingImage(nearestKnownFill(colourPlanes(image, alphaPlane), hole), hole, region);
}

}  // namespace quorblen
