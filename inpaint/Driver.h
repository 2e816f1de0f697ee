// The diffusion inpainting driver.
#pragma once

#include <memory>
#include <string>

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

namespace detail {
class PlaneSweep;
}

/// The pixels the driver updates: those with alpha (channel 3) above 0 among the interior
/// pixels (one pixel from every edge), rows from the bottom up and columns from right to left
/// (the order that decides ties), each tagged -1.
/// Precondition: `mask` has at least 4 channels.
PixelList unknownPixels(const ImageBuffer& mask);

/// The pixels whose curvature the Elastica step computes: the interior pixels that are fully
/// unknown (alpha approximately 1) or have a fully unknown 4-neighbour, in the order of
/// unknownPixels.
/// Precondition: `mask` has at least 4 channels.
BandList bandPixels(const ImageBuffer& mask);

/// Iterations of one diffusion step over lists built once: the driver's loop, for callers
/// that decide for themselves when to stop. Holds references to `mask` and `work`, which must
/// outlive it; the preconditions and methods are those of `inpaint`. The DigitalTV and
/// Elastica iterations run on vector kernels and threads, with the steps' bits on any thread
/// count.
class DiffusionRun {
public:
    /// Builds the lists from `mask` and the step's buffers for `work`. Iterations update
    /// channels 0 .. colourChannels-1 (1 to 3; the driver takes all three) on up to `threads`
    /// threads (0: one per core), the calling one among them. Throws std::bad_alloc, and
    /// std::system_error when a thread cannot start.
    DiffusionRun(const ImageBuffer& mask, ImageBuffer& work, int method, double lambda,
                 double epsilon, double timeStep, int colourChannels = 3, int threads = 1);
    ~DiffusionRun();
    DiffusionRun(const DiffusionRun&) = delete;
    DiffusionRun& operator=(const DiffusionRun&) = delete;

    /// One iteration on the colour channels, each reading only the previous iteration's
    /// values. Returns the iteration's largest change (always 0 for DualTV); a NaN change
    /// never enters it. The DigitalTV and Elastica steps change only the listed pixels, and
    /// with `writeWork` false leave `work` as it was until writeWork() or the next iteration
    /// that writes it: the run holds their values.
    double iterate(bool writeWork = true);

    /// Writes the last iteration's values into `work`, where iterations left it behind.
    void writeWork();

    /// Starts again from `start` (which must have the size and channels of the working image)
    /// with a new time step.
    void restart(const ImageBuffer& start, double timeStep);

    /// The pixels the iterations update, in list order.
    const PixelList& pixels() const { return m_pixels; }

private:
    const ImageBuffer& m_mask;
    ImageBuffer& m_work;
    int m_method;
    double m_lambda;
    double m_epsilon;
    double m_timeStep;
    int m_colourChannels;
    PixelList m_pixels;
    BandList m_band;                              // Elastica only
    ImageBuffer m_scratch;                        // DualTV only: the solver step's estimate
    ImageBuffer m_dual;                           // DualTV only: its gradient and smoothing planes
    std::unique_ptr<detail::PlaneSweep> m_sweep;  // DigitalTV and Elastica
};

/// Fills the unknown region of `work` by `iterations` Jacobi iterations of one diffusion step
/// on channels 0, 1 and 2, each iteration reading only the previous one's values.
///
/// `mask` channel 3 marks the region: pixels with alpha above 0 are updated, those with alpha
/// 1 (approximately) are fully unknown. Only interior pixels (one pixel from every edge) are
/// ever updated; an image narrower or lower than 3 pixels is left unchanged. `iterations`
/// below 1 runs none. `method` is an InpaintMethod: DigitalTV (`lambda` weighs a partly known
/// pixel's own value), Elastica (explicit steps of size `timeStep`) or DualTV (the 2x solver
/// step with `mask`'s colour as its reference: it changes every pixel of `work` and makes the
/// mean of each 2x2 block at (2X, 2Y) equal to `mask` pixel (X, Y), so it reads only the
/// top-left quarter of `mask`'s colour); any other value changes nothing. `epsilon` (> 0)
/// keeps gradient magnitudes off zero.
///
/// Output on std::cout: a progress bar, advanced once per iteration unless dumping. With
/// `dumpEveryIteration` and a non-empty `fileName`, `fileName` is a Boost.Format pattern with
/// one directive fed the iteration number: `work` is written under it before the first
/// iteration (0) and after each, with a "inpaint: Wrote: NAME Inf norm: N" line giving the
/// iteration's largest change (always 0 for DualTV). Otherwise a non-empty `fileName` names
/// the file the result is written to at the end. Files are written through
/// ImageBuffer::writeImage, the type chosen from the name.
///
/// Preconditions: `mask` and `work` have equal width and height and at least 4 channels, and
/// `work` channel 3 carries the same mask (the steps read alpha from it).
/// Throws Boost.Format's errors for a pattern without exactly one directive (files already
/// written stay), the std::string of writeImage when a file cannot be written, and
/// std::bad_alloc.
void inpaint(const ImageBuffer& mask, ImageBuffer& work, int iterations, bool dumpEveryIteration,
             int method, const std::string& fileName, double lambda, double epsilon,
             double timeStep);

}  // namespace quorblen
