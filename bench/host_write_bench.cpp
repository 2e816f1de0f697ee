// Benchmark of writing a large float EXR: the host's writer against OpenImageIO on its own.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imageio.h>

#include <filesystem>
#include <string>

#include "BenchFiles.h"
#include "NoisyRamps.h"
#include "host/Write.h"

namespace quorblen {
namespace {

constexpr int Width = 3840;
constexpr int Height = 2160;

const std::filesystem::path outputFile = bench::benchFile("write.exr");

/// Arguments: whether to compress (zip, the EXR default, or none) and the writer's threads.
/// Writes the image through the host's writer, which deflates zip blocks with libdeflate.
void BM_HostWriteExr(benchmark::State& state) {
    ImageBuffer image = bench::noisyRamps(Width, Height);
    host::Write write(nullptr);
    write.file(outputFile.c_str());
    write.set_file_type_from_filename();
    write.compression(state.range(0) != 0 ? "zip" : "none");
    write.render_options({int(state.range(1))});
    write.set_input(0, &image);
    for (auto _ : state) {
        if (!write.execute()) {
            state.SkipWithError("the write failed");
        }
    }
    state.counters["MB"] = double(std::filesystem::file_size(outputFile)) / 1e6;
    std::filesystem::remove(outputFile);
}
BENCHMARK(BM_HostWriteExr)
    ->ArgNames({"zip", "threads"})
    ->Args({1, 1})
    ->Args({1, 2})
    ->Args({0, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

/// Argument: OpenEXR's threads. The same image written zip-compressed by OpenImageIO and
/// OpenEXR alone, which deflate with zlib: what the host's writer is measured against.
void BM_OpenImageIoWriteExrZip(benchmark::State& state) {
    const ImageBuffer image = bench::noisyRamps(Width, Height);
    OIIO::attribute("exr_threads", int(state.range(0)));
    OIIO::ImageSpec spec(Width, Height, 3, OIIO::TypeDesc::FLOAT);
    spec.attribute("compression", "zip");
    for (auto _ : state) {
        const auto output = OIIO::ImageOutput::create(outputFile.string());
        if (!output || !output->open(outputFile.string(), spec) ||
            !output->write_image(OIIO::TypeDesc::FLOAT, image.data) || !output->close()) {
            state.SkipWithError("the write failed");
        }
    }
    state.counters["MB"] = double(std::filesystem::file_size(outputFile)) / 1e6;
    std::filesystem::remove(outputFile);
}
BENCHMARK(BM_OpenImageIoWriteExrZip)
    ->ArgNames({"threads"})
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace quorblen
