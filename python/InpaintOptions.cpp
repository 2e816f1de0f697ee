// The inpainting recipes' options as Python keyword arguments.
#include "python/InpaintOptions.h"

#include "python/ImageArrays.h"
#include "python/Keywords.h"

namespace quorblen::python {
namespace {

constexpr const char* sourceKeywords[2] = {"source2", "source3"};
constexpr const char* maskKeywords[2] = {"source2_mask", "source3_mask"};

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
                            const ImageBuffer& image, SourceImages& sources,
                            NonFiniteMode& fixNan) {
    RecipeOptions options = recipeDefaults(recipeNamed(method).recipe);
    const ImageBuffer** sourceFields[2] = {&options.source2, &options.source3};
    const ImageBuffer** maskFields[2] = {&options.source2Mask, &options.source3Mask};
    fixNan = readKeywords("inpaint", keywords, recipeParameters(), options,
                          {sourceKeywords[0], sourceKeywords[1], maskKeywords[0], maskKeywords[1]});
    const auto given = [&](const char* keyword) {
        return keywords.contains(keyword) && !keywords[keyword].is_none();
    };
    for (int k = 0; k < 2; ++k) {
        if (given(sourceKeywords[k])) {
            sources.images[k] = imageFromArray(keywords[sourceKeywords[k]], sourceKeywords[k]);
            fixNonFinite(sources.images[k], fixNan, sourceKeywords[k]);
            *sourceFields[k] = &sources.images[k];
        }
        if (given(maskKeywords[k])) {
            sources.holes[k] = holeFromArray(keywords[maskKeywords[k]], maskKeywords[k], image);
            *maskFields[k] = &sources.holes[k];
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
    for (const auto* keywordsOfSources : {sourceKeywords, maskKeywords}) {
        for (int k = 0; k < 2; ++k) {
            text +=
                std::string(", ") + keywordsOfSources[k] + ": numpy.typing.ArrayLike | None = None";
        }
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
           "    source2, source3 (default: the image itself; patchmatch: none)\n"
           "        weighted-elastica, multi-source, fallback, patchmatch: more images of the\n"
           "        image's shape to copy colours from, converted like it; their pixels in\n"
           "        their hole donate nothing\n"
           "    source2_mask, source3_mask (default: mask)\n"
           "        the holes of source2 and source3 (a neighbouring frame's own matte), read\n"
           "        as mask: a source's pixels outside its hole donate, those behind the\n"
           "        image's hole included\n" +
           fixNanHelp();
}

}  // namespace quorblen::python
