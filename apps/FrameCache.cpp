// Image files read for one frame of a run, kept for the next.
#include "apps/FrameCache.h"

#include "apps/Rendering.h"

namespace quorblen::app {

std::shared_ptr<const LoadedImage> FrameCache::read(const std::string& path) {
    if (const auto found = m_current.find(path); found != m_current.end()) {
        return found->second;
    }
    const auto kept = m_previous.find(path);
    auto image =
        kept != m_previous.end()
            ? kept->second
            : std::make_shared<const LoadedImage>(readImageFile(path, renderOptions(1, nullptr)));
    m_current.emplace(path, image);
    return image;
}

void FrameCache::nextFrame() {
    m_previous = std::move(m_current);
    m_current.clear();
}

}  // namespace quorblen::app
