// Exemplar passes that take colours from three sources: the image being filled and two more.
//
// Common to the three passes: `src` is the image being inpainted and source 0; `extraSrc1` and
// `extraSrc2` are sources 1 and 2. The pass works on a copy of `src` (the fill copy) that
// holds its fills and alphas. Each step takes the listed pixel P at the pass's level with the
// highest pixelPriority (above 0) in the fill copy, scanning pix_list from the front when
// `forward` and from the back otherwise, the direction flipping every step; the first met
// wins ties. Candidates are the pixels q of the square of half-width `searchRadius` pixels
// around P lying at least one pixel inside `src`, visited columns outer and rows inner,
// sources 0, 1, 2 at each q; a candidate wins only by a strictly lower score, so ties keep the
// first. A patch candidate has sample `maskChannel` exactly 0.0 on its source's 3x3 block
// around q and its patch of radius `patchRadius` inside `src`; its patch distance compares P's
// patch in the fill copy with q's patch in the fill copy (source 0) or in its own source.
// Colours are always copied from the sources, so pixels filled during the pass never donate;
// a pixel without a winner gets its colour from `src`. Nothing of `out` is written but the
// filled pixels, addressed with `out`'s own layout. Each returns the largest |src - written
// colour| over the filled pixels and channels 0-2 (0.0 for an empty list).
//
// Preconditions: `extraSrc1` and `extraSrc2` cover `src`'s width and height with at least 4
// and `maskChannel` + 1 channels, `src` has at least 4, and `out` covers `src` with at least 4
// channels (3 for the weighted pass). Listed pixels lie at least max(1, patchRadius) pixels
// inside every edge, max(2, patchRadius) for the elastica-scored passes.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"

namespace quorblen {

/// Fills, by patch distance alone, the listed pixels at alpha 0.7^iteration (within
/// approxEqual); a filled pixel moves to 0.7^(iteration + 1) in the fill copy and in `out`,
/// which receives its colour and alpha. A step in which no pixel is at the level does nothing
/// before the pass's first pick and afterwards fills the previous pixel again. The source of
/// the last winner carries over to the following steps: a step without a winner copies the
/// pixel's own colour from that source. `ignored` and `ignoredValue` are never read.
double inpaintMultiSourceSynthesis(const ImageBuffer* ignored, const ImageBuffer& extraSrc1,
                                   const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                   ImageBuffer& out, int maskChannel, const PixelList& pix_list,
                                   int searchRadius, int patchRadius, bool forward,
                                   float ignoredValue, double iteration);

/// Fills the listed pixels whose alpha in the fill copy is exactly 1.0, scoring each patch
/// candidate by patchDistance * patchWeight + elasticaEnergy at P with the candidate's colour
/// tried in a second copy of `src` (the energy copy, which also holds the pass's fills). A
/// winner must score below the energy of P's present colour plus 100000. A filled pixel gets
/// alpha 0.5 in the fill copy; `out` receives its colour only. The pass ends when no pixel is
/// left at alpha 1.0. `epsilon` and `curvatureWeight` are used in single precision.
/// `ignored` and `ignoredValue` are never read.
double inpaintWeightedElasticaSynthesis(const ImageBuffer* ignored, const ImageBuffer& extraSrc1,
                                        const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                        ImageBuffer& out, int maskChannel,
                                        const PixelList& pix_list, int searchRadius,
                                        int patchRadius, bool forward, double epsilon,
                                        double curvatureWeight, double ignoredValue,
                                        double patchWeight);

/// Fills the listed pixels at alpha 0.7^iteration (within approxEqual) by the best patch
/// candidate; when its distance is above 0.0005 (or there is none), a second search over the
/// same window takes instead the single pixel (sample `maskChannel` exactly 0.0 at q alone,
/// no patch bounds) whose colour, tried in the energy copy, gives elasticaEnergy at P
/// strictly below that of P's present colour and of earlier candidates. A filled pixel moves to
/// 0.7^(iteration + 1) in the fill copy and in `out`, which receives its colour and alpha. The
/// pass ends when no pixel is left at the level. `epsilon` and `curvatureWeight` are used in
/// single precision; `ignored` is never read.
double inpaintSynthesisElasticaFallback(const ImageBuffer* ignored, const ImageBuffer& extraSrc1,
                                        const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                        ImageBuffer& out, int maskChannel,
                                        const PixelList& pix_list, int searchRadius,
                                        int patchRadius, bool forward, double epsilon,
                                        double curvatureWeight, double iteration);

}  // namespace quorblen
