// The inpainting recipes' options as Python keyword arguments.
#include "python/InpaintOptions.h"

#include "python/ImageArrays.h"
#include "python/Keywords.h"

namespace quorblen::python {
namespace {

constexpr const char* sourceKeywords[2] = {"source2", "source3"};

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

}  // namespace

RecipeOptions recipeOptions(const std::string& method, const py::kwargs& keywords,
                            ImageBuffer (&sources)[2], NonFiniteMode& fixNan) {
    RecipeOptions options = recipeDefaults(recipeNamed(method).recipe);
    const ImageBuffer** sourceFields[2] = {&options.source2, &options.source3};
    fixNan = readKeywords("inpaint", keywords, recipeParameters(), options,
                          {sourceKeywords[0], sourceKeywords[1]});
    for (int k = 0; k < 2; ++k) {
        if (keywords.contains(sourceKeywords[k]) && !keywords[sourceKeywords[k]].is_none()) {
            sources[k] = imageFromArray(keywords[sourceKeywords[k]], sourceKeywords[k]);
            fixNonFinite(sources[k], fixNan, sourceKeywords[k]);
            *sourceFields[k] = &sources[k];
        }
    }
    return options;
}

std::string inpaintSignature() {
    std::string text = std::string(
                           "inpaint(image: numpy.typing.ArrayLike, mask: numpy.typing.ArrayLike, "
                           "method: str = '") +
                       inpaintRecipes()[0].name + "', *";
    for (const RecipeParameter& parameter : recipeParameters()) {
        text += ", " + keywordSignature(parameter, std::nullopt);
    }
    for (const char* source : sourceKeywords) {
        text += std::string(", ") + source + ": numpy.typing.ArrayLike | None = None";
    }
    return text + ", " + fixNanSignature() + ") -> numpy.ndarray";
}

std::string describeRecipes() {
    std::string text = "Methods:\n";
    for (const RecipeInfo& info : inpaintRecipes()) {
        text += std::string("    ") + info.name + ": " + info.summary + "\n";
    }
    text += "\nOptions (range; default), each None for the method's default:\n";
    for (const RecipeParameter& parameter : recipeParameters()) {
        text += keywordHelp(parameter, parameterDefaults(parameter));
    }
    return text +
           "    source2, source3 (default: the image itself)\n"
           "        weighted-elastica, multi-source, fallback: more images of the image's shape "
           "to copy colours from, converted like it; their pixels in the hole donate nothing\n" +
           fixNanHelp();
}

}  // namespace quorblen::python
