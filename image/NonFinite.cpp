// Counting and repairing samples that are not finite numbers.
#include "image/NonFinite.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace quorblen {
namespace {

constexpr NonFiniteModeInfo modeTable[] = {
    {NonFiniteMode::None, "none", "keep them and say how many there are"},
    {NonFiniteMode::Black, "black", "set them to 0"},
    {NonFiniteMode::Box3, "box3",
     "the mean of the finite samples of its channel among its 8 neighbours, or 0"},
    {NonFiniteMode::Error, "error", "refuse the image"},
};

std::ptrdiff_t sampleCount(const ImageBuffer& image) {
    return std::ptrdiff_t(image.width) * image.height * image.channels;
}

/// The Box3 value of sample `i` of a row whose pixels have `channels` samples and whose row
/// above, the row itself and the row below are `rows` (null beyond the image's edge), each
/// `length` samples long.
float neighbourMean(const float* const (&rows)[3], std::ptrdiff_t length, int channels,
                    std::ptrdiff_t i) {
    const std::ptrdiff_t first = std::max<std::ptrdiff_t>(i % channels, i - channels);
    const std::ptrdiff_t last = std::min(length - 1, i + channels);
    double sum = 0.0;
    int count = 0;
    for (const float* row : rows) {
        for (std::ptrdiff_t k = first; row != nullptr && k <= last; k += channels) {
            if (std::isfinite(row[k])) {
                sum += row[k];
                ++count;
            }
        }
    }
    // Summed in double, stored as float.
    return count > 0 ? static_cast<float>(sum / count) : 0.0f;
}

}  // namespace

std::span<const NonFiniteModeInfo> nonFiniteModes() {
    return modeTable;
}

const NonFiniteModeInfo* findNonFiniteMode(std::string_view name) {
    for (const NonFiniteModeInfo& info : modeTable) {
        if (name == info.name) {
            return &info;
        }
    }
    return nullptr;
}

std::string nonFiniteModeNames(const char* quote) {
    std::string names;
    for (const NonFiniteModeInfo& info : modeTable) {
        names += (names.empty() ? "" : ", ") + (quote + (info.name + std::string(quote)));
    }
    return names;
}

std::size_t countNonFinite(const ImageBuffer& image) {
    return std::size_t(std::count_if(image.data, image.data + sampleCount(image),
                                     [](float v) { return !std::isfinite(v); }));
}

std::string nonFiniteText(std::size_t count) {
    return std::to_string(count) +
           (count == 1 ? " sample is not a finite number" : " samples are not finite numbers") +
           " (NaN or infinite)";
}

void repairNonFinite(ImageBuffer& image, NonFiniteMode mode) {
    if (mode != NonFiniteMode::Black && mode != NonFiniteMode::Box3) {
        return;
    }
    // Box3 reads the neighbours as they were: this row and the one above from copies taken
    // before their repair, the one below from the image, which is repaired after.
    const std::ptrdiff_t length = std::ptrdiff_t(image.width) * image.channels;
    std::vector<float> above;
    std::vector<float> here;
    for (int y = 0; y < image.height; ++y) {
        float* row = image.data + std::ptrdiff_t(y) * image.stride;
        if (mode == NonFiniteMode::Box3) {
            above.swap(here);
            here.assign(row, row + length);
        }
        const float* const rows[3] = {y > 0 ? above.data() : nullptr, here.data(),
                                      y + 1 < image.height ? row + image.stride : nullptr};
        for (std::ptrdiff_t i = 0; i < length; ++i) {
            if (!std::isfinite(row[i])) {
                row[i] = mode == NonFiniteMode::Black
                             ? 0.0f
                             : neighbourMean(rows, length, image.channels, i);
            }
        }
    }
}

}  // namespace quorblen
