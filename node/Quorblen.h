// The Quorblen node: a 2x enlargement refined by a total-variation solver.
#pragma once

#include <atomic>
#include <mutex>

#include "host/Iop.h"
#include "image/FillBuffer.h"
#include "image/ImageBuffer.h"
#include "node/QuorblenKnobs.h"

namespace quorblen {

/// The operator the module registers. Its output is input 0 at twice the width and height:
/// a nearest-neighbour start refined by `iterations` TV steps per channel, every 2x2 block
/// keeping the mean of its input pixel. The input's box (data window) and format (display
/// window) double in place, offsets included, and metadata that count pixels double with them.
/// The whole result is computed once per validation, under `cacheMutex`, and every row is then
/// served from `outputBuffer` without the lock. The solver keeps its own scratch rows: the node
/// holds no work image.
class Quorblen : public host::Iop {
public:
    explicit Quorblen(host::Node* node);
    ~Quorblen() override;

    /// The registry entry: "Quorblen", the factory `build`, the build stamp.
    static const host::Op::Description description;

    // Knob-bound settings.
    int iterations = UpscaleOptions{}.iterations;
    double lambda = UpscaleOptions{}.lambda;
    double regularization = UpscaleOptions{}.regularization;

    /// True when the cached result must be recomputed before rows are served. Set (release)
    /// by validation, cleared (release) under `cacheMutex` when a computation completes, read
    /// (acquire) without the lock: a clean cache is never written, so rows read it unlocked.
    std::atomic<bool> dirty{true};

    ImageBuffer inputBuffer;        // the whole input, one plane per cached channel
    ImageBuffer outputBuffer;       // the result, twice the input's size, same planes
    host::ChannelSet cachedPlanes;  // the channels of the planes, in host order
    std::mutex cacheMutex;          // guards the buffers, `cachedPlanes` and clearing `dirty`
    host::Format outputFormat;

    /// True when the settings make the node change nothing (fewer than one iteration).
    bool isIdentity() const { return iterations < 1; }

    void knobs(host::Knob_Closure& f) override;
    const char* Class() const override;
    const char* node_help() const override;

    /// Serves row y, columns x .. r-1, of each requested channel from its plane of the cache;
    /// a channel the cache lacks, which the input does not have either, is zeros. Computes the
    /// cache first when it is dirty; gives up without writing on an abort.
    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override;

    /// Builds the cache under the lock if it is dirty, for every channel of `channels` and of
    /// the input, so that no later request needs it rebuilt while others read it. Solves on
    /// the host's render threads (`render_threads`, every core when unset). Returns false
    /// when the host aborted.
    bool computeResult(const host::ChannelSet& channels);

protected:
    void _validate(bool for_real) override;
    void _request(int x, int y, int r, int t, const host::ChannelSet& channels, int count) override;
};

/// The factory the registration uses: a new Quorblen for `node` inside a host OpWrapper.
host::Op* build(host::Node* node);

}  // namespace quorblen
