// Where the file benchmarks put their files.
#pragma once

#include <filesystem>
#include <string>

namespace quorblen::bench {

/// `name` in the system's temporary folder, prefixed so that it names the benchmarks.
inline std::filesystem::path benchFile(const std::string& name) {
    return std::filesystem::temp_directory_path() / ("quorblen-bench-" + name);
}

}  // namespace quorblen::bench
