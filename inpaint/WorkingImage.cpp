// The working image of a recipe: the hole's surroundings cropped (and padded) out of a photo,
// and the way back.
#include "inpaint/WorkingImage.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <stdexcept>
#include <string>

namespace quorblen {
namespace {

/// The planes of an image with `channels` planes other than `alphaPlane`.
std::vector<int> colourPlaneList(int channels, int alphaPlane) {
    std::vector<int> planes;
    for (int plane = 0; plane < channels; ++plane) {
        if (plane != alphaPlane) {
            planes.push_back(plane);
        }
    }
    assert(!planes.empty() && planes.size() <= 3);
    return planes;
}

}  // namespace

HoleFlags holeFlags(const ImageBuffer& mask) {
    HoleFlags hole(std::size_t(mask.width) * mask.height);
    for (std::size_t i = 0; i < hole.size(); ++i) {
        hole[i] = mask.data[i * mask.channels] != 0.0f;
    }
    return hole;
}

Region holeRegion(const HoleFlags& hole, int width, int height, int margin) {
    Region box{width, height, 0, 0};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (hole[std::size_t(y) * width + x]) {
                box = {std::min(box.x0, x), std::min(box.y0, y), std::max(box.x1, x + 1),
                       std::max(box.y1, y + 1)};
            }
        }
    }
    assert(box.x0 < box.x1);
    return {box.x0 - margin, box.y0 - margin, box.x1 + margin, box.y1 + margin};
}

Region insideImage(const Region& region, int width, int height) {
    return {std::max(region.x0, 0), std::max(region.y0, 0), std::min(region.x1, width),
            std::min(region.y1, height)};
}

ImageBuffer cropWorkingImage(const ImageBuffer& image, int alphaPlane, const HoleFlags& hole,
                             const Region& region, const std::vector<GuessSource>& guesses) {
    const std::vector<int> planes = colourPlaneList(image.channels, alphaPlane);
    const auto setColour = [&](float* to, std::size_t from) {
        const float* colour = image.data + from * image.channels;
        for (int c = 0; c < 3; ++c) {
            to[c] = colour[planes[std::min<std::size_t>(c, planes.size() - 1)]];
        }
    };
    ImageBuffer work(region.x1 - region.x0, region.y1 - region.y0, WorkChannels);
    const auto pixelOf = [&](int x, int y) {
        return work.data + (y - region.y0) * work.stride + (x - region.x0) * WorkChannels;
    };
    const Region box = insideImage(region, image.width, image.height);
    for (int y = box.y0; y < box.y1; ++y) {
        for (int x = box.x0; x < box.x1; ++x) {
            const std::size_t from = std::size_t(y) * image.width + x;
            float* to = pixelOf(x, y);
            setColour(to, from);
            to[WorkAlpha] = hole[from] ? 1.0f : 0.0f;
            to[WorkDonor] = hole[from] ? 1.0f : 0.0f;
        }
    }
    for (const GuessSource& guess : guesses) {
        const int x = int(guess.pixel % std::size_t(image.width));
        const int y = int(guess.pixel / std::size_t(image.width));
        if (x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1) {
            setColour(pixelOf(x, y), guess.source);
        }
    }
    // The padding repeats the colour of the nearest pixel inside, first guess included.
    const auto pad = [&](int x, int y) {
        const float* nearest =
            pixelOf(std::clamp(x, box.x0, box.x1 - 1), std::clamp(y, box.y0, box.y1 - 1));
        float* to = pixelOf(x, y);
        std::copy_n(nearest, 3, to);
        to[WorkAlpha] = 0.0f;
        to[WorkDonor] = 1.0f;
    };
    for (int y = region.y0; y < region.y1; ++y) {
        // A row inside the image has padding at its ends only.
        const bool rowInside = y >= box.y0 && y < box.y1;
        for (int x = region.x0; x < (rowInside ? box.x0 : region.x1); ++x) {
            pad(x, y);
        }
        for (int x = rowInside ? box.x1 : region.x1; x < region.x1; ++x) {
            pad(x, y);
        }
    }
    return work;
}

double knownRange(const ImageBuffer& work, const char* what) {
    float low = HUGE_VALF;
    float high = -HUGE_VALF;
    for (int i = 0; i < work.width * work.height; ++i) {
        const float* pixel = work.data + std::ptrdiff_t(i) * work.channels;
        if (pixel[WorkAlpha] == 0.0f) {
            if (!std::isfinite(pixel[0] + pixel[1] + pixel[2])) {
                throw std::invalid_argument(
                    std::string(what) +
                    " holds samples that are not finite numbers next to the hole");
            }
            low = std::min({low, pixel[0], pixel[1], pixel[2]});
            high = std::max({high, pixel[0], pixel[1], pixel[2]});
        }
    }
    return high > low ? double(high) - double(low) : 1.0;
}

void pasteHole(const ImageBuffer& work, const Region& region, const HoleFlags& hole,
               ImageBuffer& image, int alphaPlane) {
    const std::vector<int> planes = colourPlaneList(image.channels, alphaPlane);
    // The region may reach beyond the image; only its part inside can hold hole pixels.
    const Region inside = insideImage(region, image.width, image.height);
    for (int y = inside.y0; y < inside.y1; ++y) {
        for (int x = inside.x0; x < inside.x1; ++x) {
            if (!hole[std::size_t(y) * image.width + x]) {
                continue;
            }
            const float* from =
                work.data + (y - region.y0) * work.stride + (x - region.x0) * work.channels;
            float* to = image.data + std::ptrdiff_t(y) * image.stride + x * image.channels;
            for (std::size_t k = 0; k < planes.size(); ++k) {
                to[planes[k]] = from[k];
            }
        }
    }
}

}  // namespace quorblen
