// The Quorblen node: a 2x enlargement refined by a total-variation solver.
#pragma once

#include <atomic>
#include <mutex>

#include "host/Iop.h"
#include "image/ImageBuffer.h"

namespace quorblen {

/// The operator the module registers. Its output is input 0 at twice the width and height:
/// a nearest-neighbour start refined by `iterations` TV steps per channel, every 2x2 block
/// keeping the mean of its input pixel. The input's box (data window) and format (display
/// window) double in place, offsets included, and metadata that count pixels double with them. The
/// whole result is computed once per validation, under `cacheMutex`, and every row is then served
/// from `outputBuffer` without the lock.
class Quorblen : public host::Iop {
public:
    explicit Quorblen(host::Node* node);
    ~Quorblen() override;

    /// The registry entry: "Quorblen", the factory `build`, the build stamp.
    static const host::Op::Description description;

    // Knob-bound settings, defaults below.
    int iterations = 5;
    double lambda = 5.0;
    double regularization = 0.0001;

    /// True when the cached result must be recomputed before rows are served. Set (release)
    /// by validation and when a computation starts, cleared under `cacheMutex` when one
    /// completes, read (acquire) without the lock.
    std::atomic<bool> dirty{true};
    /// The planes `outputBuffer` serves, published (release) once the result is complete, so
    /// the unlocked test of a request's channel count never reads a buffer being rebuilt.
    std::atomic<int> cachedPlanes{0};

    ImageBuffer inputBuffer;   // the whole input, one plane per requested channel
    ImageBuffer outputBuffer;  // the result, twice the input's size, same planes
    ImageBuffer workBuffer;    // the solver's two scratch planes
    std::mutex cacheMutex;     // guards the three buffers and the clearing of `dirty`
    host::Format outputFormat;

    /// True when the settings make the node change nothing (fewer than one iteration).
    bool isIdentity() const { return iterations < 1; }

    void knobs(host::Knob_Closure& f) override;
    const char* Class() const override;
    const char* node_help() const override;

    /// Serves row y, columns x .. r-1: plane k-1 of the cache for the k-th requested channel.
    /// Computes the cache first when it is dirty; gives up without writing on an abort.
    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override;

    /// Builds the cache under the lock if it is dirty. Returns false when the host aborted.
    bool computeResult(const host::ChannelSet& channels);

protected:
    void _validate(bool for_real) override;
    void _request(int x, int y, int r, int t, const host::ChannelSet& channels, int count) override;
};

/// Pulls the box (the data window) of input 0 of `op` into `buffer`, one plane per channel of
/// `channels` in host order; row 0 and column 0 of the buffer are the box's top left corner.
/// Stops at the first row after which the host has aborted.
void fillBuffer(host::Iop& op, ImageBuffer& buffer, const host::ChannelSet& channels);

/// The factory the registration uses: a new Quorblen for `node` inside a host OpWrapper.
host::Op* build(host::Node* node);

}  // namespace quorblen
