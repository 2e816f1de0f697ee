// NumPy arrays in and out of ImageBuffers.
#include "python/ImageArrays.h"

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace quorblen::python {

const char* const imageArrayHelp =
    "an (H, W) or (H, W, C) NumPy array. float32 samples are\n"
    "    taken as they are, float16 and float64 ones rounded to float32; 8-, 16- and 32-bit\n"
    "    integers are scaled by their type's largest value (uint8 and uint16 to 0..1), as\n"
    "    OpenImageIO reads such files. Any strides; read-only arrays too.\n";

namespace {

/// The OpenImageIO type of the samples of `dtype`; UNKNOWN for those the module does not take.
OIIO::TypeDesc sampleType(const py::dtype& dtype) {
    const auto size = dtype.itemsize();
    switch (dtype.kind()) {
        case 'f':
            return size == 2   ? OIIO::TypeDesc::HALF
                   : size == 4 ? OIIO::TypeDesc::FLOAT
                   : size == 8 ? OIIO::TypeDesc::DOUBLE
                               : OIIO::TypeDesc::UNKNOWN;
        case 'u':
            return size == 1   ? OIIO::TypeDesc::UINT8
                   : size == 2 ? OIIO::TypeDesc::UINT16
                   : size == 4 ? OIIO::TypeDesc::UINT32
                               : OIIO::TypeDesc::UNKNOWN;
        case 'i':
            return size == 1   ? OIIO::TypeDesc::INT8
                   : size == 2 ? OIIO::TypeDesc::INT16
                   : size == 4 ? OIIO::TypeDesc::INT32
                               : OIIO::TypeDesc::UNKNOWN;
        default:
            return OIIO::TypeDesc::UNKNOWN;
    }
}

/// `value` as a NumPy array; throws py::type_error naming `name` when it is none.
py::array asArray(const py::handle& value, const char* name) {
    if (!py::isinstance<py::array>(value)) {
        throw py::type_error(std::string(name) + " must be a NumPy array, not " +
                             typeNameOf(value));
    }
    return py::reinterpret_borrow<py::array>(value);
}

/// The error for the samples of `array`, argument `name`: their type and `expected`.
py::type_error samplesError(const char* name, const py::array& array, const char* expected) {
    return py::type_error(std::string(name) + " has samples of type " +
                          std::string(py::str(array.dtype())) + "; " + expected);
}

std::string shapeOf(const py::array& array) {
    return py::str(py::tuple(array.attr("shape")));
}

/// `array`'s samples, row after row, in the machine's byte order: the array itself when it
/// already lies so, else a copy.
py::array contiguous(const py::array& array) {
    return py::module_::import("numpy").attr("ascontiguousarray")(
        array, array.dtype().attr("newbyteorder")("="));
}

}  // namespace

ImageBuffer imageFromArray(const py::handle& value, const char* name, int growth) {
    const py::array array = asArray(value, name);
    const OIIO::TypeDesc type = sampleType(array.dtype());
    if (type == OIIO::TypeDesc::UNKNOWN) {
        throw samplesError(name, array,
                           "float16, float32, float64 and 8-, 16- and 32-bit integers are taken");
    }
    if (array.ndim() != 2 && array.ndim() != 3) {
        throw py::value_error(std::string(name) + " must have the shape (H, W) or (H, W, C), not " +
                              shapeOf(array));
    }
    const int height = int(array.shape(0));
    const int width = int(array.shape(1));
    const int channels = array.ndim() == 3 ? int(array.shape(2)) : 1;
    if (array.size() == 0) {
        throw py::value_error(std::string(name) + " is empty: its shape is " + shapeOf(array));
    }
    if (std::int64_t(array.size()) * growth > std::numeric_limits<std::int32_t>::max()) {
        throw py::value_error(std::string(name) + " is too large: its shape " + shapeOf(array) +
                              (growth > 1 ? " enlarged" : "") +
                              " makes more than 2^31 - 1 samples");
    }
    ImageBuffer image(width, height, channels);
    const py::array samples = contiguous(array);
    OIIO::convert_pixel_values(type, samples.data(), OIIO::TypeDesc::FLOAT, image.data,
                               int(array.size()));
    return image;
}

ImageBuffer holeFromArray(const py::handle& value, const char* name, const ImageBuffer& image) {
    const py::array array = asArray(value, name);
    const char kind = array.dtype().kind();
    if (kind != 'b' && kind != 'u' && kind != 'i' && kind != 'f') {
        throw samplesError(name, array, "it must be boolean or numeric");
    }
    if (array.ndim() != 2 || array.shape(0) != image.height || array.shape(1) != image.width) {
        throw py::value_error(std::string(name) + " has the shape " + shapeOf(array) +
                              " but the image is (" + std::to_string(image.height) + ", " +
                              std::to_string(image.width) + ")");
    }
    using Flags = py::array_t<bool, py::array::c_style | py::array::forcecast>;
    const Flags flags = Flags::ensure(array.attr("__ne__")(0));
    ImageBuffer hole(image.width, image.height, 1);
    for (py::ssize_t i = 0; i < flags.size(); ++i) {
        hole.data[i] = flags.data()[i] ? 1.0f : 0.0f;
    }
    return hole;
}

py::array_t<float> arrayFromImage(const ImageBuffer& image, bool flat) {
    std::vector<py::ssize_t> shape{image.height, image.width};
    if (!flat) {
        shape.push_back(image.channels);
    }
    py::array_t<float> array(shape);
    if (array.size() > 0) {
        std::memcpy(array.mutable_data(), image.data, std::size_t(array.size()) * sizeof(float));
    }
    return array;
}

std::string typeNameOf(const py::handle& value) {
    return py::str(py::type::of(value).attr("__name__"));
}

bool isFlatArray(const py::handle& value) {
    return py::isinstance<py::array>(value) && py::reinterpret_borrow<py::array>(value).ndim() == 2;
}

}  // namespace quorblen::python
