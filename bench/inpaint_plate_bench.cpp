// The inpainting recipes on a 4K plate: the bundled cat photo enlarged to 3840 x 2160, with a
// 9-pixel wire across it and a 256 x 256 square over fur. Each recipe runs end to end as the
// whole `quorblen inpaint` process (8-bit PNG in, float EXR out, defaults), beside OpenCV's
// Telea and Navier-Stokes inpainting of the same files; the diffusion iterations also run
// alone, in this process. The slow recipes take minutes: pick with --benchmark_filter.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "BenchFiles.h"
#include "inpaint/Inpaint.h"

namespace quorblen {
namespace {

constexpr int PlateWidth = 3840;
constexpr int PlateHeight = 2160;

/// Whether (x, y) lies in the plate's hole: the wire at rows 996..1004 from column 170 to
/// 3669, and the square of columns 2600..2855 and rows 1500..1755.
bool inPlateHole(int x, int y) {
    return (y >= 996 && y <= 1004 && x >= 170 && x <= 3669) ||
           (x >= 2600 && x <= 2855 && y >= 1500 && y <= 1755);
}

/// The plate and its mask as files, made once per process: chelsea.png enlarged with the
/// Catmull-Rom filter (as `oiiotool --resize:filter=catmull-rom 3840x2160` does), and the hole
/// white on black, both 8-bit PNG.
struct PlateFiles {
    std::string plate = bench::benchFile("plate.png").string();
    std::string mask = bench::benchFile("plate-mask.png").string();

    PlateFiles() {
        const OIIO::ImageBuf photo(std::string(QUORBLEN_SOURCE_DIR) + "/data/chelsea.png");
        const OIIO::ImageBuf enlarged = OIIO::ImageBufAlgo::resize(
            photo, "catmull-rom", 0.0f, OIIO::ROI(0, PlateWidth, 0, PlateHeight, 0, 1, 0, 3));
        OIIO::ImageBuf holes(OIIO::ImageSpec(PlateWidth, PlateHeight, 1, OIIO::TypeDesc::UINT8));
        for (OIIO::ImageBuf::Iterator<unsigned char> p(holes); !p.done(); ++p) {
            p[0] = inPlateHole(p.x(), p.y()) ? 1.0f : 0.0f;
        }
        if (!enlarged.write(plate, OIIO::TypeDesc::UINT8) || !holes.write(mask)) {
            throw std::runtime_error("cannot write the plate files");
        }
    }
};

const PlateFiles& plateFiles() {
    static const PlateFiles files;
    return files;
}

/// Runs `command` through the shell once per benchmark iteration, in real time, with the
/// user CPU seconds of the process it runs as a counter.
void runCommand(benchmark::State& state, const std::string& command) {
    double user = 0.0;
    for (auto _ : state) {
        rusage before{};
        getrusage(RUSAGE_CHILDREN, &before);
        const int status = std::system(command.c_str());
        rusage after{};
        getrusage(RUSAGE_CHILDREN, &after);
        if (status != 0) {
            state.SkipWithError(("failed: " + command).c_str());
            return;
        }
        user += double(after.ru_utime.tv_sec - before.ru_utime.tv_sec) +
                1e-6 * double(after.ru_utime.tv_usec - before.ru_utime.tv_usec);
    }
    state.counters["user_s"] = benchmark::Counter(user, benchmark::Counter::kAvgIterations);
}

/// `quorblen inpaint plate.png out.exr --mask mask.png --method <recipe> -d float -q`.
void BM_Inpaint4K(benchmark::State& state, const char* recipe) {
    const PlateFiles& files = plateFiles();
    const std::string output = bench::benchFile("inpainted.exr").string();
    runCommand(state, std::string(QUORBLEN_BIN_DIR) + "/quorblen inpaint " + files.plate + " " +
                          output + " --mask " + files.mask + " --method " + recipe +
                          " -d float -q");
    std::filesystem::remove(output);
}

/// OpenCV's inpainting of the plate with radius 3, as a Python script: the whole process
/// (reading the PNG files, writing a float EXR), or the cv2.inpaint call alone, which the
/// script times itself.
constexpr const char* openCvScript = R"(import os, sys, time
os.environ["OPENCV_IO_ENABLE_OPENEXR"] = "1"
import cv2, numpy
plate, mask, out, method, times = sys.argv[1:6]
image = cv2.imread(plate)
hole = cv2.imread(mask, cv2.IMREAD_GRAYSCALE)
start = time.perf_counter()
filled = cv2.inpaint(image, hole, 3, cv2.INPAINT_TELEA if method == "telea" else cv2.INPAINT_NS)
seconds = time.perf_counter() - start
cv2.imwrite(out, filled.astype(numpy.float32) / 255)
open(times, "w").write(str(seconds))
)";

void BM_OpenCv4K(benchmark::State& state, const char* method, bool callAlone) {
    const PlateFiles& files = plateFiles();
    const std::string script = bench::benchFile("opencv-inpaint.py").string();
    const std::string output = bench::benchFile("opencv-inpainted.exr").string();
    const std::string times = bench::benchFile("opencv-seconds.txt").string();
    std::ofstream(script) << openCvScript;
    const std::string command = "/usr/bin/python3 " + script + " " + files.plate + " " +
                                files.mask + " " + output + " " + method + " " + times +
                                " 2>/dev/null";
    if (!callAlone) {
        runCommand(state, command);
    } else {
        for (auto _ : state) {
            if (std::system(command.c_str()) != 0) {
                state.SkipWithError("the OpenCV script failed");
                break;
            }
            double seconds = 0.0;
            std::ifstream(times) >> seconds;
            state.SetIterationTime(seconds);
        }
    }
    std::filesystem::remove(script);
    std::filesystem::remove(output);
    std::filesystem::remove(times);
}

/// The plate as a working image of the diffusion driver: colour, and alpha 1 in the hole,
/// whose first guess is the photo itself.
ImageBuffer plateWorkingImage() {
    const OIIO::ImageBuf plate(plateFiles().plate);
    ImageBuffer work(PlateWidth, PlateHeight, 4);
    plate.get_pixels(OIIO::ROI(0, PlateWidth, 0, PlateHeight, 0, 1, 0, 3), OIIO::TypeDesc::FLOAT,
                     work.data, 4 * sizeof(float));
    for (int y = 0; y < PlateHeight; ++y) {
        for (int x = 0; x < PlateWidth; ++x) {
            work.data[std::ptrdiff_t(y) * work.stride + x * 4 + 3] = inPlateHole(x, y);
        }
    }
    return work;
}

/// Arguments: method (DigitalTV, Elastica), threads. One iteration of the recipe's diffusion
/// over the plate's hole, with the recipe's defaults, as the recipe runs it: the working image
/// left behind.
void BM_DiffusionIteration4K(benchmark::State& state) {
    const ImageBuffer start = plateWorkingImage();
    ImageBuffer work(start);
    const int method = int(state.range(0));
    const RecipeOptions o =
        recipeDefaults(method == Elastica ? InpaintRecipe::Elastica : InpaintRecipe::TV);
    DiffusionRun run(start, work, method, o.lambda, o.epsilon, o.timeStep, 3, int(state.range(1)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(run.iterate(false));
    }
}
BENCHMARK(BM_DiffusionIteration4K)
    ->ArgNames({"method", "threads"})
    ->ArgsProduct({{DigitalTV, Elastica}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// Registers the whole-process runs: every recipe, then OpenCV's two methods.
const bool registered = [] {
    for (const RecipeInfo& info : inpaintRecipes()) {
        benchmark::RegisterBenchmark((std::string("BM_Inpaint4K/") + info.name).c_str(),
                                     BM_Inpaint4K, info.name)
            ->Iterations(1)
            ->Repetitions(3)
            ->Unit(benchmark::kSecond)
            ->UseRealTime();
    }
    for (const char* method : {"telea", "ns"}) {
        benchmark::RegisterBenchmark((std::string("BM_OpenCv4K/") + method).c_str(), BM_OpenCv4K,
                                     method, false)
            ->Iterations(1)
            ->Repetitions(3)
            ->Unit(benchmark::kSecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark((std::string("BM_OpenCvCall4K/") + method).c_str(),
                                     BM_OpenCv4K, method, true)
            ->Iterations(1)
            ->Repetitions(3)
            ->Unit(benchmark::kSecond)
            ->UseManualTime();
    }
    return true;
}();

}  // namespace
}  // namespace quorblen
