// The step state of the exemplar and elastica fill passes and the lines they print.
#include "inpaint/PassState.h"

#include <ostream>
#include <utility>

#include "inpaint/PassLog.h"
#include "inpaint/PassProgress.h"
#include "inpaint/Priority.h"

namespace quorblen::detail {

void PassTally::report(const char* routine, std::size_t listSize) const {
    passLog() << routine << ": Changed " << changed << " pixels out of " << listSize
              << " this iteration.\n";
}

PassState::PassState(const ImageBuffer& image, const PixelList& list,
                     std::function<bool(float)> atLevel)
    : m_image(image),
      m_listSize(list.size()),
      m_consumed(nullptr),
      m_last(-1),
      m_order(image, list, std::move(atLevel)) {}

PassState::PassState(const ImageBuffer& image, PixelList& list)
    : m_image(image),
      m_listSize(list.size()),
      m_consumed(&list),
      m_last(static_cast<std::int32_t>(list.size()) - 1),
      m_order(image, list) {}

bool PassState::next(bool forward) {
    if (m_consumed == nullptr) {
        const bool picked = m_order.select(forward, x, y);
        if (picked) {
            passStepsDone(++m_picked, m_listSize);
        }
        return picked;
    }
    const std::uint32_t index = m_order.best(forward);
    if (index == NoPixel) {
        // highestPriorityPixel finds nothing either, and reports it.
        highestPriorityPixel(m_image, *m_consumed, m_last, forward, x, y);
        return false;
    }
    PixelList& list = *m_consumed;
    x = list[index].x;
    y = list[index].y;
    std::swap(list[index], list[static_cast<std::size_t>(m_last)]);
    m_order.retire(index, static_cast<std::uint32_t>(m_last));
    --m_last;
    passStepsDone(++m_picked, m_listSize);
    return true;
}

bool lacksAlpha(const ImageBuffer& image) {
    if (image.channels > AlphaChannel) {
        return false;
    }
    passLog() << "Error: new_img doesn't have an alpha channel!\n";
    return true;
}

}  // namespace quorblen::detail
