// The fill order of the exemplar passes.
#include "inpaint/FillOrder.h"

#include <algorithm>
#include <cassert>
#include <limits>

#include "inpaint/KernelSupport.h"
#include "inpaint/Priority.h"

namespace quorblen::detail {
namespace {

constexpr double NotSelectable = -std::numeric_limits<double>::infinity();

std::uint64_t pixelKey(std::uint32_t x, std::uint32_t y) {
    return (std::uint64_t(y) << 32) | x;
}

}  // namespace

FillOrder::FillOrder(const ImageBuffer& image, const PixelList& pix_list,
                     std::function<bool(float)> atLevel)
    : m_image(image), m_entries(pix_list), m_atLevel(std::move(atLevel)) {
    const auto n = static_cast<std::uint32_t>(m_entries.size());
    m_byPixel.reserve(n);
    m_position.resize(n);
    m_entryAt.resize(n);
    for (std::uint32_t entry = 0; entry < n; ++entry) {
        m_byPixel.emplace_back(pixelKey(m_entries[entry].x, m_entries[entry].y), entry);
        m_position[entry] = m_entryAt[entry] = entry;
    }
    std::sort(m_byPixel.begin(), m_byPixel.end());
    m_active.assign(n, true);
    while (m_leaves < n) {
        m_leaves *= 2;
    }
    m_max.assign(2 * m_leaves, NotSelectable);
    m_first.assign(2 * m_leaves, NoPixel);
    m_last.assign(2 * m_leaves, NoPixel);
    for (std::uint32_t entry = 0; entry < n; ++entry) {
        place(entry, score(entry));
    }
}

FillOrder::FillOrder(const ImageBuffer& image, const PixelList& pix_list)
    : FillOrder(image, pix_list, nullptr) {}

double FillOrder::score(std::uint32_t entry) const {
    const PixelEntry& e = m_entries[entry];
    if (!m_active[entry]) {
        return NotSelectable;
    }
    // The scans' own tests: strictly above the start of their running best (0.0 when filling
    // a level, -1.0 when consuming), so a NaN never qualifies.
    if (m_atLevel) {
        if (!m_atLevel(m_image.data[sampleIndex(m_image, e.x, e.y, 3)])) {
            return NotSelectable;
        }
        const double priority = pixelPriority(m_image, e.x, e.y);
        return priority > 0.0 ? priority : NotSelectable;
    }
    const double priority = pixelPriority(m_image, e.x, e.y);
    return priority > -1.0 ? priority : NotSelectable;
}

void FillOrder::place(std::uint32_t position, double value) {
    std::size_t node = m_leaves + position;
    m_max[node] = value;
    m_first[node] = m_last[node] = position;
    // Equal maxima keep the first position of the left half and the last of the right.
    for (node /= 2; node >= 1; node /= 2) {
        const std::size_t l = 2 * node;
        const std::size_t r = l + 1;
        const std::size_t winner = m_max[r] > m_max[l] ? r : l;
        m_max[node] = m_max[winner];
        m_first[node] = m_first[winner];
        m_last[node] = m_max[l] > m_max[r] ? m_last[l] : m_last[r];
    }
}

std::uint32_t FillOrder::best(bool forward) const {
    if (m_max[1] == NotSelectable) {
        return NoPixel;
    }
    return forward ? m_first[1] : m_last[1];
}

bool FillOrder::select(bool forward, std::uint32_t& x, std::uint32_t& y) const {
    const std::uint32_t position = best(forward);
    if (position == NoPixel) {
        return false;
    }
    const PixelEntry& entry = m_entries[m_entryAt[position]];
    x = entry.x;
    y = entry.y;
    return true;
}

void FillOrder::retire(std::uint32_t position, std::uint32_t last) {
    const std::uint32_t selected = m_entryAt[position];
    const std::uint32_t moved = m_entryAt[last];
    std::swap(m_entryAt[position], m_entryAt[last]);
    m_position[selected] = last;
    m_position[moved] = position;
    m_active[selected] = false;
    place(position, m_max[m_leaves + last]);
    place(last, NotSelectable);
}

void FillOrder::setAlpha(ImageBuffer& image, std::uint32_t x, std::uint32_t y, float alpha) {
    assert(&image == &m_image);
    image.data[sampleIndex(image, x, y, 3)] = alpha;
    // The entries whose 3x3 block holds (x, y).
    for (std::int64_t ey = std::int64_t(y) - 1; ey <= std::int64_t(y) + 1; ++ey) {
        for (std::int64_t ex = std::int64_t(x) - 1; ex <= std::int64_t(x) + 1; ++ex) {
            if (ex < 0 || ey < 0) {
                continue;
            }
            const auto key = pixelKey(std::uint32_t(ex), std::uint32_t(ey));
            auto it = std::lower_bound(m_byPixel.begin(), m_byPixel.end(),
                                       std::pair(key, std::uint32_t(0)));
            for (; it != m_byPixel.end() && it->first == key; ++it) {
                place(m_position[it->second], score(it->second));
            }
        }
    }
}

}  // namespace quorblen::detail
