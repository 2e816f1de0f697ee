// NumPy arrays in and out of ImageBuffers.
#pragma once

#include <pybind11/numpy.h>

#include <string>

#include "image/ImageBuffer.h"

namespace quorblen::python {

namespace py = pybind11;

/// What the module says an image argument may be, for its docstrings.
extern const char* const imageArrayHelp;

/// The pixels of the array `value`, (H, W) or (H, W, C), as an ImageBuffer of W x H pixels with
/// C samples each (1 for a 2-D array), converted as `imageArrayHelp` says; any strides,
/// read-only arrays too. Error messages name the argument `name`.
/// Throws py::type_error when `value` is not a NumPy array or has a dtype not listed there,
/// py::value_error for another number of dimensions, an empty image, or when `growth` times
/// its samples (the caller's largest image) would not fit in a signed 32-bit count; the
/// last is checked before anything is allocated.
ImageBuffer imageFromArray(const py::handle& value, const char* name, int growth = 1);

/// The hole the array `value` marks in `image`: a one-plane ImageBuffer of its size holding 1
/// where `value` is not 0 (NaN included) and 0 elsewhere.
/// Throws py::type_error when `value` is not a boolean or numeric NumPy array, py::value_error
/// when its shape is not `image`'s (H, W).
ImageBuffer holeFromArray(const py::handle& value, const char* name, const ImageBuffer& image);

/// A new float32 array holding `image`: (H, W, C), or (H, W) for one plane when `flat`.
py::array_t<float> arrayFromImage(const ImageBuffer& image, bool flat);

/// The name of the type of `value`, for error messages ("list", "ndarray").
std::string typeNameOf(const py::handle& value);

/// Whether `value` is a NumPy array of 2 dimensions (an image given without a channel axis).
bool isFlatArray(const py::handle& value);

}  // namespace quorblen::python
