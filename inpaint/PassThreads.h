// The exemplar and elastica fill passes on a pool of threads; not part of the library's
// interface. Each gives the bits of the public pass of the same name (which runs it on one
// thread) on any number of threads.
//
// A pass given `fillInOut` keeps its working copy in `out`, which must hold `src` (`source`)
// on entry: that copy gets the same colours and alphas as `out`, so the pass spares a copy of
// the image. The exemplar runner's passes start from such a copy.
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/PixelList.h"
#include "inpaint/WorkerPool.h"

namespace quorblen::detail {

double inpaintTextureSynthesisOn(WorkerPool& pool, const ImageBuffer& src, ImageBuffer& out,
                                 int maskChannel, const PixelList& pix_list, int searchRadius,
                                 double iteration, int patchRadius, bool forward,
                                 bool fillInOut = false);

double inpaintMultiSourceSynthesisOn(WorkerPool& pool, const ImageBuffer& extraSrc1,
                                     const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                     ImageBuffer& out, int maskChannel, const PixelList& pix_list,
                                     int searchRadius, int patchRadius, bool forward,
                                     double iteration, bool fillInOut = false);

double inpaintWeightedElasticaSynthesisOn(WorkerPool& pool, const ImageBuffer& extraSrc1,
                                          const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                          ImageBuffer& out, int maskChannel,
                                          const PixelList& pix_list, int searchRadius,
                                          int patchRadius, bool forward, double epsilon,
                                          double curvatureWeight, double patchWeight);

double inpaintSynthesisElasticaFallbackOn(WorkerPool& pool, const ImageBuffer& extraSrc1,
                                          const ImageBuffer& extraSrc2, const ImageBuffer& src,
                                          ImageBuffer& out, int maskChannel,
                                          const PixelList& pix_list, int searchRadius,
                                          int patchRadius, bool forward, double epsilon,
                                          double curvatureWeight, double iteration,
                                          bool fillInOut = false);

double inpaintElasticaTextureSynthesisOn(WorkerPool& pool, const ImageBuffer& src, ImageBuffer& img,
                                         int maskChannel, PixelList& pix_list, int searchRadius,
                                         double epsilon, double curvatureWeight, double patchWeight,
                                         int patchRadius, bool forward);

double inpaintTextureElasticaOn(WorkerPool& pool, ImageBuffer& src, ImageBuffer& new_img,
                                int maskChannel, PixelList& pix_list, int searchRadius,
                                bool forward, double epsilon, double curvatureWeight,
                                double iteration);

double inpaintTextureTVOn(WorkerPool& pool, const ImageBuffer& source, ImageBuffer& output,
                          int maskChannel, const PixelList& pix_list, int searchRadius,
                          bool fillInOut = false);

}  // namespace quorblen::detail
