// Helpers the tests share.
#include "TestImages.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace quorblen::test {

namespace {

// A name no other test or run of the tests uses at the same time.
std::string uniqueTag() {
    static std::atomic<int> counter{0};
    return std::to_string(getpid()) + "-" + std::to_string(counter.fetch_add(1));
}

}  // namespace

std::string readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

ScratchDir::ScratchDir()
    : m_path(std::filesystem::temp_directory_path() / ("quorblen-test-" + uniqueTag())) {
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
}

ProgramRun runQuorblen(const std::vector<std::string>& args,
                       const std::filesystem::path& workingDir, std::uint64_t fileSizeLimit) {
    const std::filesystem::path out =
        std::filesystem::temp_directory_path() / ("qout-" + uniqueTag());
    const std::filesystem::path err = out.string() + ".err";
    const std::string program = (binaryDir() / "quorblen").string();
    std::vector<std::string> words{program};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        // Only async-signal-safe calls up to exec: the test may run threads.
        const int in = open("/dev/null", O_RDONLY);
        const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const rlimit limit{fileSizeLimit, fileSizeLimit};
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        if (in >= 0 && o >= 0 && e >= 0 && chdir(workingDir.c_str()) == 0 && dup2(in, 0) == 0 &&
            dup2(o, 1) == 1 && dup2(e, 2) == 2 &&
            (fileSizeLimit == 0 ||
             (setrlimit(RLIMIT_FSIZE, &limit) == 0 && sigaction(SIGXFSZ, &ignore, nullptr) == 0))) {
            execv(program.c_str(), argv.data());
        }
        _exit(127);
    }
    int status = 0;
    const bool waited = child > 0 && waitpid(child, &status, 0) == child;
    const ProgramRun run{waited && WIFEXITED(status) ? WEXITSTATUS(status) : -1, readBytes(out),
                         readBytes(err)};
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
    image.layout.dataWindow = {spec.x, spec.y, spec.x + spec.width, spec.y + spec.height};
    image.layout.displayWindow = {spec.full_x, spec.full_y, spec.full_x + spec.full_width,
                                  spec.full_y + spec.full_height};
    for (const OIIO::ParamValue& p : spec.extra_attribs) {
        image.layout.attributes[p.name().string()] = p.get_string();
    }
    EXPECT_TRUE(
        input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.pixels.data))
        << input->geterror();
    return image;
}

void writeFileImage(const std::filesystem::path& path, const ImageBuffer& pixels,
                    const std::vector<std::string>& channelNames, const std::string& datatype,
                    const FileLayout& layout) {
    auto output = OIIO::ImageOutput::create(path.string());
    ASSERT_TRUE(output) << OIIO::geterror();
    OIIO::ImageSpec spec(pixels.width, pixels.height, pixels.channels,
                         OIIO::TypeDesc(datatype.c_str()));
    spec.channelnames = channelNames;
    spec.x = layout.dataWindow.x;
    spec.y = layout.dataWindow.y;
    const host::Box& d = layout.displayWindow;
    spec.set_roi_full(d.empty() ? spec.roi() : OIIO::ROI(d.x, d.r, d.y, d.t));
    spec.tile_width = spec.tile_height = layout.tileSize;
    for (const auto& [name, value] : layout.attributes) {
        // Numbers (PixelAspectRatio, XResolution) as floats, anything else as text.
        float number = 0.0f;
        const char* end = value.data() + value.size();
        if (!value.empty() && std::from_chars(value.data(), end, number).ptr == end) {
            spec.attribute(name, number);
        } else {
            spec.attribute(name, value);
        }
    }
    ASSERT_TRUE(output->open(path.string(), spec)) << output->geterror();
    ASSERT_TRUE(output->write_image(OIIO::TypeDesc::FLOAT, pixels.data)) << output->geterror();
    ASSERT_TRUE(output->close());
}

ImageBuffer makeImage(int width, int height, int channels,
                      const std::function<float(int x, int y, int c)>& value) {
    ImageBuffer image(width, height, channels);
    for (int i = 0; i < width * height * channels; ++i) {
        image.data[i] = value(i / channels % width, i / channels / width, i % channels);
    }
    return image;
}

ImageBuffer upscaledStepByStep(const ImageBuffer& reference, int iterations, float lambda,
                               float epsilon, const detail::RowKernels& kernels) {
    ImageBuffer estimate =
        makeImage(2 * reference.width, 2 * reference.height, reference.channels,
                  [&](int x, int y, int c) { return at(reference, x / 2, y / 2, c); });
    ImageBuffer work(estimate.width, estimate.height, 2);
    for (int c = 0; c < estimate.channels; ++c) {
        for (int i = 0; i < iterations; ++i) {
            detail::tvUpscaleStepWith(kernels, reference, estimate, work, c, lambda, epsilon);
        }
    }
    return estimate;
}

double blockMean(const ImageBuffer& image, int X, int Y, int c) {
    return (double(at(image, 2 * X, 2 * Y, c)) + at(image, 2 * X + 1, 2 * Y, c) +
            at(image, 2 * X, 2 * Y + 1, c) + at(image, 2 * X + 1, 2 * Y + 1, c)) /
           4.0;
}

Planes pullRow(host::Iop& op, int y, int x, int r, host::ChannelSet channels, int width) {
    width = std::max(width, r);
    host::Row row(0, width);
    for (host::Channel z : channels) {
        std::fill(row.writable(z), row.writable(z) + width, -1.0f);
    }
    row.get(op, y, x, r, channels);
    Planes planes;
    for (host::Channel z : channels) {
        planes.emplace_back(row[z], row[z] + width);
    }
    return planes;
}

Planes rowOf(const ImageBuffer& image, int y, int count) {
    Planes planes(count);
    for (int c = 0; c < count; ++c) {
        for (int x = 0; x < image.width; ++x) {
            planes[c].push_back(at(image, x, y, c));
        }
    }
    return planes;
}

std::vector<std::string> fileNames(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace quorblen::test
