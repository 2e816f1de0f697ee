// The diffusion recipes (TV, elastica): iterations of the driver's steps until they settle, a
// diverging elastica flow starting again with a shorter step.
#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

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

/// The samples the iterations change: channels 0 .. colourChannels-1 of the listed pixels of
/// `work`, in list order. Every other sample keeps its value from the start, a finite number
/// (knownRange checked the known colours, from which the first guess copied the others).
std::vector<float> changingSamples(const ImageBuffer& work, const PixelList& pixels,
                                   int colourChannels) {
    std::vector<float> samples;
    samples.reserve(pixels.size() * std::size_t(colourChannels));
    for (const PixelEntry& p : pixels) {
        const float* pixel = work.data + std::ptrdiff_t(p.y) * work.stride + p.x * work.channels;
        samples.insert(samples.end(), pixel, pixel + colourChannels);
    }
    return samples;
}

/// Puts `samples`, changingSamples of `work` taken earlier, back into `work`.
void setChangingSamples(ImageBuffer& work, const PixelList& pixels, int colourChannels,
                        const std::vector<float>& samples) {
    assert(samples.size() == pixels.size() * std::size_t(colourChannels));
    auto from = samples.begin();
    for (const PixelEntry& p : pixels) {
        float* pixel = work.data + std::ptrdiff_t(p.y) * work.stride + p.x * work.channels;
        std::copy_n(from, colourChannels, pixel);
        from += colourChannels;
    }
}

bool allFinite(const std::vector<float>& samples) {
    return std::all_of(samples.begin(), samples.end(), [](float v) { return std::isfinite(v); });
}

/// Whether the sample that moved most from `b` to `c`, by more than `fast`, had moved the
/// other way, by at least half as much, from `a` to `b`: three successive states of a flow
/// that chatters around its values instead of settling, as an explicit step too long for the
/// image does. The states are changingSamples of the working image; of samples that moved
/// equally, the first in the image decides.
bool chatters(const std::vector<float>& a, const std::vector<float>& b, const std::vector<float>& c,
              const ImageBuffer& work, const PixelList& pixels, int colourChannels, double fast) {
    float largest = 0.0f;
    std::ptrdiff_t fastest = -1;
    std::ptrdiff_t fastestIndex = 0;  // in the image
    for (std::size_t i = 0; i < c.size(); ++i) {
        const PixelEntry& p = pixels[i / std::size_t(colourChannels)];
        const std::ptrdiff_t index = std::ptrdiff_t(p.y) * work.stride + p.x * work.channels +
                                     std::ptrdiff_t(i % std::size_t(colourChannels));
        const float moved = std::fabs(c[i] - b[i]);
        if (moved > largest || (fastest >= 0 && moved == largest && index < fastestIndex)) {
            largest = moved;
            fastest = std::ptrdiff_t(i);
            fastestIndex = index;
        }
    }
    if (fastest < 0 || largest <= fast) {
        return false;
    }
    const float last = c[fastest] - b[fastest];
    const float before = b[fastest] - a[fastest];
    return last * before < 0.0f && std::fabs(before) > 0.5f * std::fabs(last);
}

/// Runs the diffusion recipe of `job` on its working image `work` until the largest change per
/// unit of flow time falls below the tolerance or the iterations run out. A run that diverges
/// (a change larger than the known colours' range, values that are not numbers, or chatter at
/// its end) starts again from the first guess with half the time step and twice the
/// iterations.
void diffuse(const RecipeJob& job, ImageBuffer& work) {
    const RecipeOptions& options = job.options;
    const int method = options.recipe == InpaintRecipe::Elastica ? Elastica : DigitalTV;
    const char* name = job.name;
    assert(std::all_of(work.data,
                       work.data + std::ptrdiff_t(work.width) * work.height * work.channels,
                       [](float v) { return std::isfinite(v); }));
    double timeStep = options.timeStep;
    int iterations = options.iterations;
    const double limit = job.colourRange;
    // The steps read the hole from the working image's alpha, which they never change.
    DiffusionRun run(work, work, method, options.lambda, options.epsilon, timeStep,
                     job.colourChannels, options.threads);
    // The iterations change these samples alone: putting them back restores the first guess.
    const std::vector<float> firstGuess = changingSamples(work, run.pixels(), job.colourChannels);
    // The iterations leave the working image behind; it is brought up to date only to be read.
    const auto samples = [&] {
        run.writeWork();
        return changingSamples(work, run.pixels(), job.colourChannels);
    };
    // Each start takes the share of the fill that the ones before it left.
    std::string stage = name;
    double done = 0.0;
    for (int backOffs = 0;; ++backOffs) {
        // Every thousandth of the iterations, and every 16 when there are many.
        const int reportEvery = std::clamp(iterations / 1000, 1, 16);
        int it = 0;
        double norm = 0.0;
        bool diverged = false;
        std::vector<float> recent[2];  // the states before the last two iterations
        while (it < iterations) {
            if (it >= iterations - 2) {
                recent[it - (iterations - 2)] = samples();
            }
            norm = run.iterate(false);
            ++it;
            if (it % reportEvery == 0) {
                job.report(stage, done + (1.0 - done) * it / iterations);
            }
            diverged = !(norm <= limit);
            // TV iterations are fixed-point sweeps, one unit of flow time each.
            const double flowTime = method == Elastica ? timeStep : 1.0;
            if (diverged || norm < options.tolerance * flowTime) {
                break;
            }
        }
        const std::vector<float> last = samples();
        diverged = diverged || !allFinite(last) ||
                   (method == Elastica && it == iterations && iterations >= 2 &&
                    chatters(recent[0], recent[1], last, work, run.pixels(), job.colourChannels,
                             ChatterSpeed * limit * timeStep));
        if (!diverged) {
            job.log << name << ": " << it << " iterations; largest change of the last " << norm
                    << "\n";
            return;
        }
        // Only the explicit elastica flow has a step to shorten.
        if (method != Elastica || backOffs == MaxBackOffs) {
            throw std::runtime_error(
                std::string("the ") + name + " fill diverged" +
                (method == Elastica ? " even at time step " + std::to_string(timeStep) : "") +
                "; try a larger epsilon");
        }
        done += (1.0 - done) * it / iterations;
        timeStep /= 2;
        iterations = std::min(iterations, std::numeric_limits<int>::max() / 2) * 2;
        stage = std::string(name) + ": time step " + std::to_string(timeStep);
        job.log << name << ": unstable after " << it
                << " iterations; starting again from the first guess with time step " << timeStep
                << "\n";
        setChangingSamples(work, run.pixels(), job.colourChannels, firstGuess);
        run.restart(work, timeStep);
    }
}

}  // namespace

const RecipeRunner diffusionRunner{diffusionRecipes, diffusionMargin, diffuse};

}  // namespace quorblen::detail
