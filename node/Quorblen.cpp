// The Quorblen node: registration, knobs, validation, and the cached whole-image engine.
#include "node/Quorblen.h"

#include "host/OpWrapper.h"
#include "image/RowCopy.h"
#include "tv/TvUpscale.h"

namespace quorblen {

const host::Op::Description Quorblen::description("Quorblen", build, "Jul 17 2011 for 6.3v1");

host::Op* build(host::Node* node) {
    return new host::OpWrapper(new Quorblen(node));
}

Quorblen::Quorblen(host::Node* node) : host::Iop(node) {}

Quorblen::~Quorblen() = default;

void Quorblen::knobs(host::Knob_Closure& f) {
    host::Int_knob(f, &iterations, "Iterations");
    host::Tooltip(f,
                  "This filter is an iterative filter - the longer it runs, the closer it gets "
                  "to the \"best\" solution. In this case the noisy smooth areas will converge "
                  "to a non-noisy smooth area.");
    host::Float_knob(f, &lambda, "Lambda");
    host::Tooltip(f,
                  "This controls the filtered values are allowed to stray from the original "
                  "input. ");
    host::Float_knob(f, &regularization, "A");
    host::Tooltip(f,
                  "A regularization parameter that should always be at least a teensy bit "
                  "above zero. This prevents Divides-By-Zero in the algorithm.");
}

const char* Quorblen::Class() const {
    return description.name;
}

const char* Quorblen::node_help() const {
    return "This node scales an image by a factor of two. (No, you can't change that right "
           "now.) It uses a Total Variational Inpainting technique that is supposed to "
           "minimize noise while still preserving the edges. \n The lambda parameter is the "
           "main control here, the larger it is, the less smoothing is allowed and the more "
           "noise present in the small image will make it to the larger image.";
}

namespace {

/// Metadata that count pixels: image sizes, and densities in pixels per unit, which double
/// so that the enlarged image keeps its physical size.
constexpr const char* pixelCountAttributes[] = {
    "Exif:PixelXDimension", "Exif:PixelYDimension",       "XResolution",
    "YResolution",          "Exif:FocalPlaneXResolution", "Exif:FocalPlaneYResolution",
};

host::Box doubled(const host::Box& box) {
    return host::Box{2 * box.x, 2 * box.y, 2 * box.r, 2 * box.t};
}

}  // namespace

void Quorblen::_validate(bool /*for_real*/) {
    copy_info();
    const host::Iop* in = input(0);
    const host::Format& inputFormat = in != nullptr ? in->format() : host::Format();
    const int w = inputFormat.r - inputFormat.x;
    const int h = inputFormat.t - inputFormat.y;

    // The display window doubles in place, its offset included.
    outputFormat = host::Format(2 * w, 2 * h, inputFormat.pixel_aspect);
    static_cast<host::Box&>(outputFormat) = doubled(inputFormat);
    outputFormat.name = "";
    info_().format(outputFormat);
    info_().full_size_format(outputFormat);
    for (const char* name : pixelCountAttributes) {
        if (host::MetaValue* value = info_().metadata().find(name)) {
            for (double& number : value->numbers) {
                number *= 2.0;
            }
        }
    }

    if (isIdentity()) {
        set_out_channels(host::Mask_None);
        return;
    }
    set_out_channels(host::Mask_All);
    // Every validation invalidates the cache, changed or not: the next row recomputes.
    dirty.store(true, std::memory_order_release);
    // The input's data window is the box the node enlarges, in place like the format.
    info_().set(doubled(in != nullptr ? in->info().box() : host::Box{}));
}

void Quorblen::_request(int /*x*/, int /*y*/, int /*r*/, int /*t*/,
                        const host::ChannelSet& channels, int count) {
    // The engine computes the whole result at once, so the input's whole box is needed, in
    // every channel the cache will hold.
    if (host::Iop* in = input(0)) {
        const host::Box& box = in->info().box();
        host::ChannelSet planes = channels;
        planes += in->channels();
        in->request(box.x, box.y, box.r, box.t, planes, count);
    }
}

bool Quorblen::computeResult(const host::ChannelSet& channels) {
    std::scoped_lock lock(cacheMutex);
    // Another thread may have finished while this one waited for the lock.
    if (!dirty.load(std::memory_order_acquire)) {
        return !aborted();
    }
    host::ChannelSet planes = channels;
    planes += input0().channels();
    fillBuffer(*this, inputBuffer, planes);
    if (aborted()) {
        return false;
    }
    outputBuffer.resize(2 * inputBuffer.width, 2 * inputBuffer.height, inputBuffer.channels);
    const TvUpscaleSettings settings =
        upscaleSettings({iterations, lambda, regularization, render_threads()});
    const TvUpscaleMonitor monitor{[this] { return aborted(); },
                                   [this](double fraction) { progress_fraction(fraction); }};
    if (!tvUpscale(inputBuffer, outputBuffer, settings, monitor)) {
        return false;
    }
    cachedPlanes = planes;
    dirty.store(false, std::memory_order_release);
    return !aborted();
}

void Quorblen::engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) {
    if (isIdentity()) {
        input0().get(y, x, r, channels, row);
        return;
    }
    if (dirty.load(std::memory_order_acquire) && !computeResult(channels)) {
        return;
    }
    // The cache holds the box: its row 0 and column 0 are the box's top left corner.
    serveRow(outputBuffer, cachedPlanes, info().box(), y, x, r, channels, row);
}

}  // namespace quorblen
