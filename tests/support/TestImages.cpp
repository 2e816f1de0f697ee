// Helpers the tests share.
#include "TestImages.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace quorblen::test {

std::filesystem::path sourcePath(const std::string& relative) {
    return std::filesystem::path(QUORBLEN_SOURCE_DIR) / relative;
}

std::filesystem::path binaryDir() {
    return std::filesystem::path(QUORBLEN_BIN_DIR);
}

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

namespace {

std::string shellQuoted(const std::string& word) {
    std::string quoted = "'";
    for (char ch : word) {
        quoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
    }
    return quoted + "'";
}

std::string readWholeFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

ProgramRun runQuorblen(const std::vector<std::string>& args,
                       const std::filesystem::path& workingDir) {
    static std::atomic<int> counter{0};
    const std::string tag = std::to_string(getpid()) + "-" + std::to_string(counter.fetch_add(1));
    const std::filesystem::path out =
        std::filesystem::temp_directory_path() / ("quorblen-out-" + tag);
    const std::filesystem::path err =
        std::filesystem::temp_directory_path() / ("quorblen-err-" + tag);
    std::string command = "cd " + shellQuoted(workingDir.string()) + " && " +
                          shellQuoted((binaryDir() / "quorblen").string());
    for (const std::string& arg : args) {
        command += " " + shellQuoted(arg);
    }
    command += " </dev/null >" + shellQuoted(out.string()) + " 2>" + shellQuoted(err.string());
    const int status = std::system(command.c_str());
    ProgramRun run;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = readWholeFile(out);
    run.err = readWholeFile(err);
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return run;
}

FileImage readFileImage(const std::filesystem::path& path) {
    FileImage image;
    auto input = OIIO::ImageInput::open(path.string());
    if (!input) {
        ADD_FAILURE() << "cannot read " << path << ": " << OIIO::geterror();
        return image;
    }
    const OIIO::ImageSpec& spec = input->spec();
    image.pixels.resize(spec.width, spec.height, spec.nchannels);
    image.channelNames = spec.channelnames;
    image.datatype = spec.format.c_str();
    EXPECT_TRUE(
        input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.pixels.data))
        << input->geterror();
    return image;
}

void writeFileImage(const std::filesystem::path& path, const ImageBuffer& pixels,
                    const std::vector<std::string>& channelNames, const std::string& datatype) {
    auto output = OIIO::ImageOutput::create(path.string());
    ASSERT_TRUE(output) << OIIO::geterror();
    OIIO::ImageSpec spec(pixels.width, pixels.height, pixels.channels,
                         OIIO::TypeDesc(datatype.c_str()));
    spec.channelnames = channelNames;
    ASSERT_TRUE(output->open(path.string(), spec)) << output->geterror();
    ASSERT_TRUE(output->write_image(OIIO::TypeDesc::FLOAT, pixels.data)) << output->geterror();
    ASSERT_TRUE(output->close());
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
