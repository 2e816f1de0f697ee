// The Python module `quorblen`: the node's 2x upscale, the inpainting recipes and raw files
// on NumPy arrays.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl/filesystem.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "image/RawImageFile.h"
#include "inpaint/Recipe.h"
#include "node/QuorblenKnobs.h"
#include "python/ImageArrays.h"
#include "python/InpaintOptions.h"

namespace quorblen::python {
namespace {

/// The most threads an upscale may ask for, as on the command line.
constexpr int MaxThreads = 1024;

/// Throws py::value_error naming `name` unless `value`, narrowed to the solver's single
/// precision, is finite and at least (or with `exclusive`, above) `min`.
void checkKnob(const char* name, double value, double min, bool exclusive) {
    const float narrowed = static_cast<float>(value);
    if (!std::isfinite(narrowed) || narrowed < min || (exclusive && narrowed == min)) {
        std::ostringstream message;
        message << name << " must be a finite float " << (exclusive ? "above " : "of at least ")
                << min << ", not " << value;
        throw py::value_error(message.str());
    }
}

py::array upscale(const py::object& image, int iterations, double lam, double a, int threads) {
    if (iterations < 1) {
        throw py::value_error("iterations must be at least 1, not " + std::to_string(iterations));
    }
    checkKnob("lam", lam, 0.0, false);
    checkKnob("a", a, 0.0, true);
    if (threads < 0 || threads > MaxThreads) {
        throw py::value_error("threads must be 0 (one per core) to " + std::to_string(MaxThreads) +
                              ", not " + std::to_string(threads));
    }
    // The enlargement holds four times the image's samples.
    const ImageBuffer reference = imageFromArray(image, "image", 4);
    ImageBuffer estimate;
    {
        py::gil_scoped_release release;
        estimate.resize(2 * reference.width, 2 * reference.height, reference.channels);
        tvUpscale(reference, estimate, upscaleSettings(iterations, lam, a, threads));
    }
    return arrayFromImage(estimate, isFlatArray(image));
}

py::array inpaint(const py::object& image, const py::object& mask, const std::string& method,
                  const py::kwargs& keywords) {
    ImageBuffer sources[2];
    const RecipeOptions options = recipeOptions(method, keywords, sources);
    const ImageBuffer pixels = imageFromArray(image, "image");
    const ImageBuffer hole = holeFromArray(mask, "mask", pixels);
    // Two channels are grey and alpha, four colour and alpha, as image files hold them.
    const int alphaPlane = pixels.channels == 2 || pixels.channels == 4 ? pixels.channels - 1 : -1;
    std::stringstream log;
    ImageBuffer result;
    {
        py::gil_scoped_release release;
        result = fillHole(pixels, alphaPlane, hole, options, log);
    }
    const py::object logger = py::module_::import("logging").attr("getLogger")("quorblen");
    std::string line;
    while (std::getline(log, line)) {
        logger.attr("info")(line);
    }
    return arrayFromImage(result, isFlatArray(image));
}

/// Raises the OSError (FileNotFoundError, PermissionError, ...) of `error` for `path`.
[[noreturn]] void raiseFileError(int error, const std::filesystem::path& path) {
    errno = error;
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
}

/// Raises an OSError saying `message`.
[[noreturn]] void raiseFileError(const std::string& message) {
    PyErr_SetString(PyExc_OSError, message.c_str());
    throw py::error_already_set();
}

py::array readRawArray(const std::filesystem::path& path) {
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) {
        raiseFileError(errno, path);
    }
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        raiseFileError(EISDIR, path);
    }
    if (const std::string shortfall = rawFileShortfall(path.c_str()); !shortfall.empty()) {
        raiseFileError(shortfall);
    }
    ImageBuffer image;
    readRaw(in, &image);
    if (in.fail()) {
        raiseFileError(path.string() +
                       " is not a raw image: its header is cut short or "
                       "announces more than 2^31 - 1 samples");
    }
    return arrayFromImage(image, false);
}

void writeRawArray(const std::filesystem::path& path, const py::object& image) {
    const ImageBuffer pixels = imageFromArray(image, "image");
    if (const int error = saveRaw(path.c_str(), pixels); error != 0) {
        raiseFileError(error, path);
    }
}

std::string upscaleHelp() {
    std::ostringstream text;
    text << "Enlarges an image to twice its width and height, as the Quorblen node and\n"
            "`quorblen upscale` do, to the bit: a nearest-neighbour start refined by a\n"
            "total-variation solver, which smooths noise in flat areas and keeps edges. Every\n"
            "2x2 block of the result keeps the mean of the input pixel it came from.\n\n"
            "image: "
         << imageArrayHelp
         << "    Each channel is solved on its own.\n"
            "iterations: solver iterations per channel, at least 1 (default "
         << DefaultIterations
         << ").\n"
            "lam: fidelity to the input, a finite float of at least 0 (default "
         << DefaultLambda
         << ");\n"
            "    larger values smooth less.\n"
            "a: regularisation of gradient magnitudes, in sample units, a finite float above 0\n"
            "    (default "
         << DefaultRegularization
         << "); it keeps the solver from dividing by zero.\n"
            "threads: threads to solve on, 0 (the default: one per core) to "
         << MaxThreads
         << ";\n"
            "    the result does not depend on it.\n\n"
            "Returns a new float32 array of shape (2H, 2W) or (2H, 2W, C). The GIL is released\n"
            "while the solver runs.\n"
            "Raises TypeError for an image that is not an array or has another dtype, ValueError\n"
            "for another shape, an empty image or a knob out of its range.";
    return text.str();
}

std::string inpaintHelp() {
    return "Fills the hole `mask` marks in `image` with one of the recipes of `quorblen inpaint`,\n"
           "with the same options and defaults and the same results, to the bit.\n\n"
           "image: " +
           std::string(imageArrayHelp) +
           "    C is 1 to 4: grey, grey and alpha, colour, colour and alpha (alpha last).\n"
           "mask: an (H, W) boolean or numeric array; non-zero (and NaN) pixels are the hole,\n"
           "    which may touch the image's edges.\n"
           "method: one of the methods below (default '" +
           inpaintRecipes()[0].name +
           "').\n"
           "Keyword options, each for the methods it names:\n\n" +
           describeRecipes() +
           "\nReturns a new float32 array of the image's shape: the hole's colour filled, every\n"
           "other sample (alpha included) the image's, bit for bit. Progress lines go to the\n"
           "'quorblen' logger (INFO); the exemplar passes also print a line each on standard\n"
           "output. The GIL is released while the recipe runs.\n"
           "Raises TypeError for an argument of the wrong type or an unknown keyword, ValueError\n"
           "for shapes that differ, an option out of its range, a mask that leaves no pixel\n"
           "known, RuntimeError when the elastica flow diverges even at a small time step.";
}

}  // namespace
}  // namespace quorblen::python

PYBIND11_MODULE(quorblen, m) {
    using namespace quorblen;
    using namespace quorblen::python;
    m.doc() =
        "Quorblen on NumPy arrays: the 2x total-variation upscale, the inpainting recipes and\n"
        "raw image files, with the results of the quorblen command line.";
    m.attr("__version__") = QUORBLEN_VERSION;
    m.def("upscale", &upscale, py::arg("image"), py::arg("iterations") = DefaultIterations,
          py::arg("lam") = DefaultLambda, py::arg("a") = DefaultRegularization,
          py::arg("threads") = 0, upscaleHelp().c_str());
    m.def("inpaint", &inpaint, py::arg("image"), py::arg("mask"),
          py::arg("method") = std::string(inpaintRecipes()[0].name), inpaintHelp().c_str());
    m.def("read_raw", &readRawArray, py::arg("path"),
          "Reads a raw image file (three int32: width, height, channels, then the float32\n"
          "samples, in the machine's byte order) into a new (H, W, C) float32 array.\n"
          "path: a str or os.PathLike.\n"
          "Raises OSError (FileNotFoundError, ...) when the file cannot be read, is cut short\n"
          "or is not a raw image.");
    m.def("write_raw", &writeRawArray, py::arg("path"), py::arg("image"),
          ("Writes an image to a raw file (created or replaced), its samples as float32.\n"
           "path: a str or os.PathLike.\n"
           "image: " +
           std::string(imageArrayHelp) +
           "The file is whole or absent: the samples go to a temporary file beside it, which\n"
           "replaces it once every byte is on disk.\n"
           "Raises TypeError or ValueError for the image as upscale does, OSError naming the\n"
           "file when it cannot be written (a missing folder, a full disk, ...).")
              .c_str());
}
