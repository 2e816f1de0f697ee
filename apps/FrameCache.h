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
    /// Files are read with `options` (threads, interrupt).
    explicit FrameCache(const host::RenderOptions& options) : m_options(options) {}

    /// The file `path`: the copy this frame or the previous one read, or else read with
    /// readImageFile. Throws CommandError as readImageFile does.
    std::shared_ptr<const LoadedImage> read(const std::string& path);

    /// The file `path` for the caller to change, read as `read` does and taken out of the
    /// cache: moved out when no one else holds it, copied otherwise. For a file no later read
    /// asks for, which then costs neither a copy nor memory after its use.
    LoadedImage take(const std::string& path);

    /// Begins the next frame: the files the previous frame read and this one did not go.
    void nextFrame();

private:
    /// The cache's entry for `path`, read into it when it has none.
    std::shared_ptr<LoadedImage> entry(const std::string& path);

    host::RenderOptions m_options;
    // Changeable, so that `take` may move out an image no one else holds.
    std::map<std::string, std::shared_ptr<LoadedImage>> m_previous;
    std::map<std::string, std::shared_ptr<LoadedImage>> m_current;
};

}  // namespace quorblen::app
