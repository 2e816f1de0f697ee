// The Python module `quorblen`: the node's 2x upscale, the inpainting recipes and raw files
// on NumPy arrays.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl/filesystem.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "image/RawImageFile.h"
#include "inpaint/Recipe.h"
#include "node/QuorblenKnobs.h"
#include "python/ImageArrays.h"
#include "python/InpaintOptions.h"
#include "python/Keywords.h"

namespace quorblen::python {
namespace {

py::array upscale(const py::object& image, const py::kwargs& keywords) {
    UpscaleOptions options;
    const NonFiniteMode fixNan = readKeywords("upscale", keywords, upscaleParameters(), options);
    // The enlargement holds four times the image's samples.
    ImageBuffer reference = imageFromArray(image, "image", 4);
    fixNonFinite(reference, fixNan, "image");
    ImageBuffer estimate;
    {
        py::gil_scoped_release release;
        estimate.resize(2 * reference.width, 2 * reference.height, reference.channels);
        tvUpscale(reference, estimate, upscaleSettings(options));
    }
    return arrayFromImage(estimate, isFlatArray(image));
}

py::array inpaint(const py::object& image, const py::object& mask, const std::string& method,
                  const py::kwargs& keywords) {
    ImageBuffer pixels = imageFromArray(image, "image");
    SourceImages sources;
    NonFiniteMode fixNan;
    const RecipeOptions options = recipeOptions(method, keywords, pixels, sources, fixNan);
    fixNonFinite(pixels, fixNan, "image");
    const ImageBuffer hole = holeFromArray(mask, "mask", pixels);
    // Two channels are grey and alpha, four colour and alpha, as image files hold them.
    const int alphaPlane = pixels.channels == 2 || pixels.channels == 4 ? pixels.channels - 1 : -1;
    // The passes' own lines join the recipe's, in the order they come.
    std::stringstream log;
    {
        py::gil_scoped_release release;
        fillHoleInPlace(pixels, alphaPlane, holeFlags(hole), options, log, &log);
    }
    const py::object logger = py::module_::import("logging").attr("getLogger")("quorblen");
    std::string line;
    while (std::getline(log, line)) {
        logger.attr("info")(line);
    }
    return arrayFromImage(pixels, isFlatArray(image));
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

std::string upscaleSignature() {
    std::string text = "upscale(image: numpy.typing.ArrayLike, *";
    const UpscaleOptions defaults;
    for (const UpscaleParameter& parameter : upscaleParameters()) {
        text += ", " + keywordSignature(parameter, parameterValue(parameter, defaults));
    }
    return text + ", " + fixNanSignature() + ") -> numpy.ndarray";
}

std::string upscaleHelp() {
    std::string text = upscaleSignature() +
                       "\n\n"
                       "Enlarges an image to twice its width and height, as the Quorblen node and\n"
                       "`quorblen upscale` do, to the bit: a nearest-neighbour start refined by a\n"
                       "total-variation solver, which smooths noise in flat areas and keeps edges. "
                       "Every\n2x2 block of the result keeps the mean of the input pixel it came "
                       "from.\n\nimage: " +
                       std::string(imageArrayHelp) +
                       "    Each channel is solved on its own.\n"
                       "Keyword options (range; default):\n";
    const UpscaleOptions defaults;
    for (const UpscaleParameter& parameter : upscaleParameters()) {
        text += keywordHelp(
            parameter, pythonNumber(parameterValue(parameter, defaults), isWholeNumber(parameter)));
    }
    return text + fixNanHelp() +
           "\nReturns a new float32 array of shape (2H, 2W) or (2H, 2W, C). The GIL is released\n"
           "while the solver runs.\n"
           "Raises TypeError for an image that is not an array or has another dtype, or an\n"
           "option of the wrong type, ValueError for another shape, an empty image or an option\n"
           "out of its range.";
}

std::string inpaintHelp() {
    return inpaintSignature() +
           "\n\n"
           "Fills the hole `mask` marks in `image` with one of the recipes of `quorblen inpaint`,\n"
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
           "other sample (alpha included) the image's, bit for bit. Progress lines, the\n"
           "exemplar passes' own included, go to the 'quorblen' logger (INFO), after the\n"
           "recipe has run. The GIL is released while it runs.\n"
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
    {
        // Their signatures, which list the keywords the tables give, lead their docstrings.
        py::options options;
        options.disable_function_signatures();
        m.def("upscale", &upscale, py::arg("image"), upscaleHelp().c_str());
        m.def("inpaint", &inpaint, py::arg("image"), py::arg("mask"),
              py::arg("method") = std::string(inpaintRecipes()[0].name), inpaintHelp().c_str());
    }
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
