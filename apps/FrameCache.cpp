// Image files read for one frame of a run, kept for the next.
#include "apps/FrameCache.h"

namespace quorblen::app {

std::shared_ptr<LoadedImage> FrameCache::entry(const std::string& path) {
    if (const auto found = m_current.find(path); found != m_current.end()) {
        return found->second;
    }
    const auto kept = m_previous.find(path);
    auto image = kept != m_previous.end()
                     ? kept->second
                     : std::make_shared<LoadedImage>(readImageFile(path, m_options));
    m_current.emplace(path, image);
    return image;
}

std::shared_ptr<const LoadedImage> FrameCache::read(const std::string& path) {
    return entry(path);
}

LoadedImage FrameCache::take(const std::string& path) {
    const std::shared_ptr<LoadedImage> image = entry(path);
    m_current.erase(path);
    m_previous.erase(path);
    if (image.use_count() == 1) {
        return std::move(*image);
    }
    return *image;
}

void FrameCache::nextFrame() {
    m_previous = std::move(m_current);
    m_current.clear();
}

}  // namespace quorblen::app
