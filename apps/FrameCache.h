// Image files read for one frame of a run, kept for the next.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "apps/ImageFiles.h"

namespace quorblen::app {

/// The image files a command reads for the frames of a run, each read from disk once while
/// consecutive frames use it: a frame filled with its neighbours as sources shares their files
/// with the frames before and after it.
class FrameCache {
public:
    /// The file `path`: the copy this frame or the previous one read, or else read with
    /// readImageFile. Throws CommandError as readImageFile does.
    std::shared_ptr<const LoadedImage> read(const std::string& path);

    /// Begins the next frame: the files the previous frame read and this one did not go.
    void nextFrame();

private:
    std::map<std::string, std::shared_ptr<const LoadedImage>> m_previous;
    std::map<std::string, std::shared_ptr<const LoadedImage>> m_current;
};

}  // namespace quorblen::app
