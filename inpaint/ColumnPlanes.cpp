// Channels of an image laid out column by column.
#include "inpaint/ColumnPlanes.h"

#include <cassert>

#include "inpaint/KernelSupport.h"

namespace quorblen::detail {

ColumnPlanes::ColumnPlanes(const ImageBuffer& image, int width, int height,
                           std::vector<int> channels, std::size_t padding)
    : m_height(height), m_channels(std::move(channels)) {
    assert(image.width >= width && image.height >= height);
    m_planes.resize(m_channels.size());
    for (std::size_t k = 0; k < m_channels.size(); ++k) {
        assert(m_channels[k] >= 0 && m_channels[k] < image.channels);
        std::vector<float>& plane = m_planes[k];
        plane.assign(std::size_t(width) * std::size_t(height) + padding, 0.0f);
        for (int y = 0; y < height; ++y) {
            const float* row = image.data + sampleIndex(image, 0, y, m_channels[k]);
            for (int x = 0; x < width; ++x) {
                plane[std::size_t(at(x, y))] = row[std::ptrdiff_t(x) * image.channels];
            }
        }
    }
}

void ColumnPlanes::refresh(const ImageBuffer& image, int x, int y) {
    for (std::size_t k = 0; k < m_channels.size(); ++k) {
        m_planes[k][std::size_t(at(x, y))] = image.data[sampleIndex(image, x, y, m_channels[k])];
    }
}

}  // namespace quorblen::detail
