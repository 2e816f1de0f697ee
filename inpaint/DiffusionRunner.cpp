// The diffusion recipes (TV, elastica): iterations of the driver's steps until they settle, a
// diverging elastica flow starting again with a shorter step.
#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>

#include "inpaint/Driver.h"
#include "inpaint/RecipeRunner.h"

namespace quorblen::detail {
namespace {

constexpr InpaintRecipe diffusionRecipes[] = {InpaintRecipe::TV, InpaintRecipe::Elastica};

/// Known pixels kept around the hole for the diffusion steps: the elastica step reads the
/// curvature of band pixels one pixel outside the hole, which must themselves be interior.
int diffusionMargin(const RecipeOptions& /*options*/, const Region& /*holeBox*/, int /*width*/,
                    int /*height*/) {
    return 2;
}

/// How often a diverging flow halves its time step before the recipe gives up.
constexpr int MaxBackOffs = 6;

/// Chatter counts only at a speed above this many times the known colours' range per unit of
/// flow time: a settled elastica flow on photos moves below 0.3, one that chatters at 7 to 50,
/// and early iterations from the first guess at up to about 3.
constexpr double ChatterSpeed = 4.0;

bool allFinite(const ImageBuffer& image) {
    return std::all_of(image.data,
                       image.data + std::ptrdiff_t(image.width) * image.height * image.channels,
                       [](float v) { return std::isfinite(v); });
}

/// Whether the sample that moved most from `b` to `c`, by more than `fast`, had moved the
/// other way, by at least half as much, from `a` to `b`: three successive states of a flow
/// that chatters around its values instead of settling, as an explicit step too long for the
/// image does.
bool chatters(const ImageBuffer& a, const ImageBuffer& b, const ImageBuffer& c, int colourChannels,
              double fast) {
    float largest = 0.0f;
    std::ptrdiff_t fastest = -1;
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t(c.width) * c.height * c.channels; ++i) {
        if (i % c.channels < colourChannels && std::fabs(c.data[i] - b.data[i]) > largest) {
            largest = std::fabs(c.data[i] - b.data[i]);
            fastest = i;
        }
    }
    if (fastest < 0 || largest <= fast) {
        return false;
    }
    const float last = c.data[fastest] - b.data[fastest];
    const float before = b.data[fastest] - a.data[fastest];
    return last * before < 0.0f && std::fabs(before) > 0.5f * std::fabs(last);
}

/// Runs the diffusion recipe of `job` on its working image until the largest change per unit
/// of flow time falls below the tolerance or the iterations run out. A run that diverges (a
/// change larger than the known colours' range, values that are not numbers, or chatter at
/// its end) starts again from the working image with half the time step and twice the
/// iterations.
ImageBuffer diffuse(const RecipeJob& job) {
    const RecipeOptions& options = job.options;
    const int method = options.recipe == InpaintRecipe::Elastica ? Elastica : DigitalTV;
    const char* name = job.name;
    ImageBuffer work(job.start);
    double timeStep = options.timeStep;
    int iterations = options.iterations;
    const double limit = job.colourRange;
    DiffusionRun run(job.start, work, method, options.lambda, options.epsilon, timeStep,
                     job.colourChannels);
    for (int backOffs = 0;; ++backOffs) {
        int it = 0;
        double norm = 0.0;
        bool diverged = false;
        ImageBuffer recent[2];  // the states before the last two iterations
        while (it < iterations) {
            if (it >= iterations - 2) {
                recent[it - (iterations - 2)] = work;
            }
            norm = run.iterate();
            ++it;
            diverged = !(norm <= limit);
            // TV iterations are fixed-point sweeps, one unit of flow time each.
            const double flowTime = method == Elastica ? timeStep : 1.0;
            if (diverged || norm < options.tolerance * flowTime) {
                break;
            }
        }
        diverged = diverged || !allFinite(work) ||
                   (method == Elastica && it == iterations && iterations >= 2 &&
                    chatters(recent[0], recent[1], work, job.colourChannels,
                             ChatterSpeed * limit * timeStep));
        if (!diverged) {
            job.log << name << ": " << it << " iterations; largest change of the last " << norm
                    << "\n";
            return work;
        }
        // Only the explicit elastica flow has a step to shorten.
        if (method != Elastica || backOffs == MaxBackOffs) {
            throw std::runtime_error(
                std::string("the ") + name + " fill diverged" +
                (method == Elastica ? " even at time step " + std::to_string(timeStep) : "") +
                "; try a larger epsilon");
        }
        timeStep /= 2;
        iterations = std::min(iterations, std::numeric_limits<int>::max() / 2) * 2;
        job.log << name << ": unstable after " << it
                << " iterations; starting again from the first guess with time step " << timeStep
                << "\n";
        run.restart(job.start, timeStep);
    }
}

}  // namespace

const RecipeRunner diffusionRunner{diffusionRecipes, diffusionMargin, diffuse};

}  // namespace quorblen::detail
