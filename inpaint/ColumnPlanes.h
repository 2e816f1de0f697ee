// Channels of an image laid out column by column for the candidate searches, which walk the
// window a column at a time; not part of the library's interface.
#pragma once

#include <cstddef>
#include <vector>

#include "image/ImageBuffer.h"

namespace quorblen::detail {

/// Some channels of an image's first width x height pixels, each in a plane of its own laid
/// out column by column (sample (x, y) at x * height + y), so that the pixels of a column,
/// and the lanes of candidates one above the other, are adjacent. The pass that writes a
/// pixel of the image refreshes it here.
class ColumnPlanes {
public:
    ColumnPlanes() = default;
    /// Channels `channels` of `image`, in that order, each plane followed by `padding`
    /// samples of 0.
    ColumnPlanes(const ImageBuffer& image, int width, int height, std::vector<int> channels,
                 std::size_t padding = 0);

    /// Copies pixel (x, y) of `image` again.
    void refresh(const ImageBuffer& image, int x, int y);

    /// The position of pixel (x, y) in every plane.
    std::ptrdiff_t at(std::ptrdiff_t x, std::ptrdiff_t y) const { return x * m_height + y; }
    std::ptrdiff_t columnStep() const { return m_height; }
    /// The plane of the k-th channel asked for.
    const float* plane(int k) const { return m_planes[std::size_t(k)].data(); }

private:
    std::ptrdiff_t m_height = 0;
    std::vector<int> m_channels;
    std::vector<std::vector<float>> m_planes;
};

}  // namespace quorblen::detail
