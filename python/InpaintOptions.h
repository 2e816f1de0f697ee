// The inpainting recipes' options as Python keyword arguments.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

#include "image/ImageBuffer.h"
#include "image/NonFinite.h"
#include "inpaint/Recipe.h"

namespace quorblen::python {

namespace py = pybind11;

/// The extra sources of `inpaint` and their holes as the keywords give them; the recipe options
/// point at them.
struct SourceImages {
    ImageBuffer images[2];
    ImageBuffer holes[2];
};

/// The recipe options of `method` that `keywords` set over its defaults for `image`: every
/// numeric option of the recipe layer under its keyword (keywordOf), `source2` and `source3`
/// as images of the image's layout, converted into `sources` (which must outlive the options)
/// and repaired as `fixnan` says, `source2_mask` and `source3_mask` as holes of the image's
/// size (read as `mask`), and `fixnan` itself, stored in `fixNan`. None leaves an option's
/// default.
/// Throws py::value_error for an unknown method, a value out of its range (NaN included) or a
/// mask of another size, py::type_error for an unknown keyword or a value of the wrong type.
RecipeOptions recipeOptions(const std::string& method, const py::kwargs& keywords,
                            const ImageBuffer& image, SourceImages& sources, NonFiniteMode& fixNan);

/// The signature of `inpaint`, for the first line of its docstring.
std::string inpaintSignature();

/// The methods and options, each with its range and defaults, for the docstring.
std::string describeRecipes();

}  // namespace quorblen::python
