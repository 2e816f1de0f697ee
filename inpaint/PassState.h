// The step state of the exemplar and elastica fill passes and the lines they print; not part
// of the library's interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "image/ImageBuffer.h"
#include "inpaint/CandidateSearch.h"
#include "inpaint/FillOrder.h"
#include "inpaint/FillPixels.h"
#include "inpaint/PixelList.h"

namespace quorblen::detail {

/// What a pass counts as it goes: the steps whose search found a winner, and the largest
/// colour change it made.
struct PassTally {
    std::int32_t changed = 0;
    double maxChange = 0.0;

    /// Counts a step that gave pixel (x, y) the colour of `from` at `choice`, the change
    /// measured from the colour of (x, y) in `at`.
    void record(const ImageBuffer& at, std::ptrdiff_t x, std::ptrdiff_t y, const ImageBuffer& from,
                const Choice& choice) {
        changed += choice.found;
        maxChange = trackColourChange(maxChange, at, x, y, from, choice.x, choice.y);
    }

    /// Prints "<routine>: Changed <changed> pixels out of <listSize> this iteration." on
    /// passLog().
    void report(const char* routine, std::size_t listSize) const;
};

/// The step state of a pass that fills its listed pixels one at a time, in the order of
/// pixelPriority over the alphas of `image` (FillOrder): the pixel being filled and the tally.
/// A level-filling pass picks among the entries at its alpha level and leaves its list as it
/// is; a consuming pass moves each pick behind the active part of its list, as
/// highestPriorityPixel's callers do. The pass writes the alphas of `image` through setAlpha
/// only, and `image` and the list must outlive the state.
class PassState {
public:
    /// Level-filling: every entry whose alpha passes atLevel(alpha), with a priority above
    /// 0.0, may be picked.
    PassState(const ImageBuffer& image, const PixelList& list, std::function<bool(float)> atLevel);

    /// Consuming: the entries not yet picked, with a priority above -1.0, may be picked.
    PassState(const ImageBuffer& image, PixelList& list);

    /// Picks the next pixel into x and y, scanning from the list's front when `forward`.
    /// Consuming, it swaps the picked entry (tag and all) with the last active one. Returns
    /// false when nothing may be picked, changing nothing; a consuming pass then has
    /// highestPriorityPixel report it on stderr. Each pick counts towards passStepsDone.
    bool next(bool forward);

    /// Writes the alpha of the pixel being filled in `image`, the image the order reads.
    void setAlpha(ImageBuffer& image, float alpha) { m_order.setAlpha(image, x, y, alpha); }

    /// Counts a step that gave the pixel being filled the colour of `from` at `choice`, the
    /// change measured from its colour in `at`.
    void record(const ImageBuffer& at, const ImageBuffer& from, const Choice& choice) {
        tally.record(at, x, y, from, choice);
    }

    /// The pixel being filled: the last one picked.
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    PassTally tally;

private:
    const ImageBuffer& m_image;
    std::size_t m_listSize;
    std::size_t m_picked = 0;
    PixelList* m_consumed;  // the consuming pass's list; null when filling a level
    std::int32_t m_last;    // the last active entry of m_consumed
    FillOrder m_order;
};

/// Whether `image` lacks an alpha channel; prints the passes' error line on passLog() when it
/// does.
bool lacksAlpha(const ImageBuffer& image);

}  // namespace quorblen::detail
