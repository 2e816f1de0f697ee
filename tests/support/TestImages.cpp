// Helpers the tests share.
#include "TestImages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <unistd.h>

namespace quorblen::test {

std::filesystem::path sourcePath(const std::string& relative) {
    return std::filesystem::path(QUORBLEN_SOURCE_DIR) / relative;
}

std::filesystem::path binaryDir() { return std::filesystem::path(QUORBLEN_BIN_DIR); }

ScratchDir::ScratchDir() {
    static std::atomic<int> counter{0};
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info != nullptr ? std::string(info->test_suite_name()) + "." + info->name()
                                       : std::string("scratch");
    for (char& ch : name) {
        if (ch == '/') {
            ch = '_';
        }
    }
    m_path = std::filesystem::temp_directory_path() /
             ("quorblen-test-" + std::to_string(getpid()) + "-" +
              std::to_string(counter.fetch_add(1)) + "-" + name);
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
}

ScratchDir::~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
}

ImageBuffer makeImage(int width, int height, int channels,
                      const std::function<float(int x, int y, int c)>& value) {
    ImageBuffer image(width, height, channels);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (int c = 0; c < channels; ++c) {
                at(image, x, y, c) = value(x, y, c);
            }
        }
    }
    return image;
}

}  // namespace quorblen::test
