// How far a recipe has got, for whoever shows it.
#pragma once

#include <string_view>

namespace quorblen {

/// Hears how far a fill has got, for a display: the caller owns it and hands it to fillHole
/// through RecipeOptions::progress, which calls it on the calling thread only, at coarse points
/// (blocks of diffusion iterations, steps through an exemplar pass's list).
class RecipeProgress {
public:
    virtual ~RecipeProgress() = default;

    /// `stage` names what runs ("tv", "texture: pass 2 of 3"); `fraction` is how much of the
    /// whole fill is done, from 0 to 1. Over one fill the fractions never decrease, and the
    /// last is 1.
    virtual void update(std::string_view stage, double fraction) = 0;
};

}  // namespace quorblen
