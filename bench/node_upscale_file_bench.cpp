// Benchmark of the whole upscale of a 4K EXR file to an EXR file, as `quorblen upscale` runs
// it, beside OpenImageIO's own resize of the same file.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <filesystem>
#include <string>

#include "BenchFiles.h"
#include "NoisyRamps.h"
#include "host/Read.h"
#include "host/Write.h"
#include "node/Quorblen.h"

namespace quorblen {
namespace {

/// A 3840 x 2160 RGB float EXR with the default (zip) compression, written once per process.
std::string inputFile() {
    static const std::string path = [] {
        const std::string file = bench::benchFile("in.exr").string();
        const ImageBuffer image = bench::noisyRamps(3840, 2160);
        OIIO::ImageBuf(OIIO::ImageSpec(3840, 2160, 3, OIIO::TypeDesc::FLOAT), image.data)
            .write(file);
        return file;
    }();
    return path;
}

/// Argument: threads. Reads the file, enlarges it with the node's default knobs and writes
/// the result as a zip EXR, through the host's reader and writer.
void BM_UpscaleExrFile(benchmark::State& state) {
    const std::string input = inputFile();
    const std::string output = bench::benchFile("out.exr").string();
    for (auto _ : state) {
        host::Read read(nullptr);
        read.file(input);
        Quorblen node(nullptr);
        node.set_input(0, &read);
        host::Write write(nullptr);
        write.file(output.c_str());
        write.set_file_type_from_filename();
        write.render_options({int(state.range(0))});
        write.set_input(0, &node);
        if (!write.execute()) {
            state.SkipWithError("the upscale failed");
        }
    }
    std::filesystem::remove(output);
}
BENCHMARK(BM_UpscaleExrFile)
    ->ArgNames({"threads"})
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

/// Argument: threads. What `oiiotool in.exr --resize 200% -o out.exr` does: read, resize with
/// the default filter, write with the default (zip) compression.
void BM_OpenImageIoResizeExrFile(benchmark::State& state) {
    const std::string output = bench::benchFile("resized.exr").string();
    OIIO::attribute("threads", int(state.range(0)));
    OIIO::attribute("exr_threads", int(state.range(0)));
    const std::string file = inputFile();
    for (auto _ : state) {
        const OIIO::ImageBuf input(file);
        const OIIO::ImageBuf resized =
            OIIO::ImageBufAlgo::resize(input, "", 0.0f, OIIO::ROI(0, 7680, 0, 4320, 0, 1, 0, 3));
        if (!resized.write(output)) {
            state.SkipWithError("the resize failed");
        }
    }
    std::filesystem::remove(output);
}
BENCHMARK(BM_OpenImageIoResizeExrFile)
    ->ArgNames({"threads"})
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace quorblen
