// The inpainting library: diffusion, exemplar synthesis and elastica-scored fills over
// ImageBuffers whose alpha channel (channel 3) marks the unknown region (0 known, 1 unknown).
#pragma once

#include "image/ImageBuffer.h"
#include "inpaint/DiffusionKernels.h"
#include "inpaint/Driver.h"
#include "inpaint/ElasticaEnergy.h"
#include "inpaint/ElasticaTextureSynthesis.h"
#include "inpaint/FlowSteps.h"
#include "inpaint/Measures.h"
#include "inpaint/MultiSourceSynthesis.h"
#include "inpaint/NearestPixel.h"
#include "inpaint/PassLog.h"
#include "inpaint/PassProgress.h"
#include "inpaint/PixelList.h"
#include "inpaint/Priority.h"
#include "inpaint/Recipe.h"
#include "inpaint/RecipeProgress.h"
#include "inpaint/TextureElastica.h"
#include "inpaint/TextureSynthesis.h"
#include "inpaint/TextureTV.h"
