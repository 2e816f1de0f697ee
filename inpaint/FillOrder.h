// The fill order of the exemplar passes, kept up to date instead of rescanned at every step.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen::detail {

/// Which entry of a pixel list a fill pass takes next, as a scan of the list by pixelPriority
/// would select it, without the scan. Each list position keeps its entry's priority while the
/// entry may be selected, and a tournament tree over the positions holds the first and the
/// last position of the highest priority (the winners of a forward and of a backward scan).
/// A priority reads the alphas of a 3x3 block only, so when the pass writes an alpha it
/// reports it (setAlpha) and the entries around that pixel are evaluated again; every
/// priority is computed by pixelPriority on the image as it stands, so the selections are the
/// scans' own. The pass must write no other alpha of `image` while it selects.
class FillOrder {
public:
    /// For the passes that fill one alpha level: every entry whose alpha passes
    /// atLevel(alpha) and whose priority is above 0.0 is selectable, at its list position.
    FillOrder(const ImageBuffer& image, const PixelList& pix_list,
              std::function<bool(float)> atLevel);

    /// For the passes that consume their list (highestPriorityPixel): the entries at
    /// positions 0 .. last whose priority is above -1.0 are selectable; `retire` moves the
    /// selected entry behind them.
    FillOrder(const ImageBuffer& image, const PixelList& pix_list);

    /// The position that a scan from the front (`forward`) or from the back selects: the first
    /// or the last of the highest priority. NoPixel when nothing is selectable.
    std::uint32_t best(bool forward) const;

    /// Writes the coordinates of the entry at best(forward) to x and y and returns true, or
    /// returns false, leaving them, when nothing is selectable.
    bool select(bool forward, std::uint32_t& x, std::uint32_t& y) const;

    /// Follows the list's swap of the entries at `position` and `last`, after which the entry
    /// now at `last` is no longer selectable.
    void retire(std::uint32_t position, std::uint32_t last);

    /// Writes the alpha of pixel (x, y) of the image and evaluates the entries around it again.
    void setAlpha(ImageBuffer& image, std::uint32_t x, std::uint32_t y, float alpha);

private:
    /// What an entry scores while selectable; -infinity while not.
    double score(std::uint32_t entry) const;
    /// Sets the score at one position and repairs the tree above it.
    void place(std::uint32_t position, double value);

    const ImageBuffer& m_image;
    PixelList m_entries;                                             // as first listed
    std::function<bool(float)> m_atLevel;                            // empty when consuming
    std::vector<std::pair<std::uint64_t, std::uint32_t>> m_byPixel;  // (pixel, entry), sorted
    std::vector<std::uint32_t> m_position;  // of each entry, as first listed
    std::vector<std::uint32_t> m_entryAt;   // at each position
    std::vector<bool> m_active;             // per entry: not yet retired
    std::size_t m_leaves = 1;
    std::vector<double> m_max;  // per tree node
    std::vector<std::uint32_t> m_first;
    std::vector<std::uint32_t> m_last;
};

}  // namespace quorblen::detail
