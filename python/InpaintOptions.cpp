// The inpainting recipes' options as Python keyword arguments.
#include "python/InpaintOptions.h"

#include <sstream>
#include <type_traits>
#include <variant>

#include "python/ImageArrays.h"

namespace quorblen::python {
namespace {

constexpr const char* sourceKeywords[2] = {"source2", "source3"};

/// The keyword that sets `parameter`.
std::string keywordOf(const RecipeParameter& parameter) {
    std::string name = parameter.name;
    if (name == "lambda") {
        return "lam";
    }
    for (char& c : name) {
        c = c == '-' ? '_' : c;
    }
    return name;
}

const RecipeInfo& recipeNamed(const std::string& method) {
    if (const RecipeInfo* info = findRecipe(method.c_str())) {
        return *info;
    }
    std::string names;
    for (const RecipeInfo& info : inpaintRecipes()) {
        names += (names.empty() ? "'" : ", '") + std::string(info.name) + "'";
    }
    throw py::value_error("method must be one of " + names + ", not '" + method + "'");
}

/// `value` as a number for the option `keyword`: an integer (Python's or NumPy's), or for a
/// double option anything `float()` takes but text.
double numberOf(const py::handle& value, const std::string& keyword, bool integer) {
    PyObject* object = value.ptr();
    const PyNumberMethods* methods = Py_TYPE(object)->tp_as_number;
    if (PyIndex_Check(object) == 0 &&
        (integer || methods == nullptr || methods->nb_float == nullptr)) {
        throw py::type_error(keyword + " must be " + (integer ? "an integer" : "a number") +
                             ", not " + typeNameOf(value));
    }
    // An integer too large for a double raises OverflowError here.
    return py::float_(py::reinterpret_borrow<py::object>(value));
}

}  // namespace

RecipeOptions recipeOptions(const std::string& method, const py::kwargs& keywords,
                            ImageBuffer (&sources)[2]) {
    RecipeOptions options = recipeDefaults(recipeNamed(method).recipe);
    const ImageBuffer** sourceFields[2] = {&options.source2, &options.source3};
    for (const auto& [key, value] : keywords) {
        const std::string keyword = py::str(key);
        bool known = false;
        for (int k = 0; k < 2; ++k) {
            if (keyword == sourceKeywords[k]) {
                sources[k] = imageFromArray(value, sourceKeywords[k]);
                *sourceFields[k] = &sources[k];
                known = true;
            }
        }
        for (const RecipeParameter& parameter : recipeParameters()) {
            if (keyword != keywordOf(parameter)) {
                continue;
            }
            known = true;
            std::visit(
                [&](auto field) {
                    using Field = std::remove_reference_t<decltype(options.*field)>;
                    const double number = numberOf(value, keyword, std::is_same_v<Field, int>);
                    const std::string problem = parameterProblem(parameter, number);
                    if (!problem.empty()) {
                        throw py::value_error(keyword + " " + problem);
                    }
                    options.*field = static_cast<Field>(number);
                },
                parameter.field);
        }
        if (!known) {
            throw py::type_error("inpaint() got an unexpected keyword argument '" + keyword + "'");
        }
    }
    return options;
}

std::string describeRecipes() {
    std::ostringstream text;
    text << "Methods:\n";
    for (const RecipeInfo& info : inpaintRecipes()) {
        text << "    " << info.name << ": " << info.summary << "\n";
    }
    text << "\nOptions (range; default):\n";
    for (const RecipeParameter& parameter : recipeParameters()) {
        text << "    " << keywordOf(parameter) << " (" << parameterRange(parameter) << "; "
             << parameterDefaults(parameter) << ")\n        " << parameter.meaning << "\n";
    }
    text << "    source2, source3 (default: the image itself)\n"
            "        weighted-elastica, multi-source, fallback: more images of the image's shape "
            "to copy colours from, converted like it; their pixels in the hole donate nothing\n";
    return text.str();
}

}  // namespace quorblen::python
