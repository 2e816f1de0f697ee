// Rows of pixels.
#include "host/Row.h"

#include <algorithm>

#include "host/Iop.h"

namespace host {

Row::Row(int x, int r) : m_x(x), m_r(std::max(x, r)), m_origin(std::min(x, 0)) {}

void Row::get(Iop& input, int y, int x, int r, const ChannelSet& channels) {
    input.get(y, x, r, channels, *this);
}

float* Row::writable(Channel z) {
    std::vector<float>& span = m_spans[static_cast<std::size_t>(z)];
    if (span.empty()) {
        span.assign(static_cast<std::size_t>(m_r - m_origin), 0.0f);
    }
    // Element 0 stands for column m_origin <= min(x, 0), so column X sits at X - m_origin.
    return span.data() - m_origin;
}

void Row::erase(const ChannelSet& channels) {
    for (Channel z : channels) {
        float* span = writable(z);
        std::fill(span + m_x, span + m_r, 0.0f);
    }
}

}  // namespace host
