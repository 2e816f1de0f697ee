// Samples that are not finite numbers (NaN, infinities): counting them, and repairing them
// before a solve would spread them.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "image/ImageBuffer.h"

namespace quorblen {

/// What a front-end does with the non-finite samples of an input (the command line's
/// --fixnan, Python's `fixnan`).
enum class NonFiniteMode {
    None,   // keep them, with a warning that gives their count
    Black,  // set them to 0
    Box3,   // replace them by the mean of their finite neighbours (repairNonFinite)
    Error   // refuse the image
};

/// A mode's name, as the front-ends spell it, and what it does.
struct NonFiniteModeInfo {
    NonFiniteMode mode;
    const char* name;
    const char* meaning;
};

/// Every mode, None (the default) first.
std::span<const NonFiniteModeInfo> nonFiniteModes();

/// The mode called `name`; nullptr when there is none.
const NonFiniteModeInfo* findNonFiniteMode(std::string_view name);

/// The names of the modes, quoted with `quote` and joined by ", ": "none, black, box3, error".
std::string nonFiniteModeNames(const char* quote);

/// How many samples of `image` are NaN or infinite.
std::size_t countNonFinite(const ImageBuffer& image);

/// "3 samples are not finite numbers (NaN or infinite)" for `count` 3: the front-ends' words.
std::string nonFiniteText(std::size_t count);

/// Replaces every non-finite sample of `image` as `mode` says; None and Error change nothing.
/// Black sets each to 0. Box3 sets each to the mean of the finite samples of the same channel
/// among its eight neighbours (its 3 x 3 block, cut at the image's edges), read as they were
/// before the repair: summed in double, row by row from the top left, divided by their count
/// and rounded to float once; 0 when none of them is finite. Finite samples keep every bit.
void repairNonFinite(ImageBuffer& image, NonFiniteMode mode);

}  // namespace quorblen
