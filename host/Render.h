// Pulling every row of an operator on several threads, as the host's render threads do.
#pragma once

#include <atomic>
#include <functional>

#include "host/Iop.h"

namespace host {

struct RenderOptions {
    int threads = 1;                               // render threads, at least 1
    ProgressSink* progress = nullptr;              // owned by the caller, updated from the
                                                   // thread that called render; may be null
    const std::atomic<bool>* interrupt = nullptr;  // set by the caller (Ctrl-C) to cancel
};

/// Receives row y of a render, spanning the columns of the rendered area.
using RowSink = std::function<void(int y, Row& row)>;

/// Renders `area` of `op`: clears the tree's abort state, gives its operators `options.threads`
/// threads for whole-image computations (Op::render_threads), validates `op`, requests `area`
/// in `channels` and pulls its rows on `options.threads` threads; columns and rows outside the
/// operator's box are zeros. `sink` receives the rows in order, top to bottom, one call at a
/// time, while the threads compute at most a few rows per thread ahead of the last one
/// delivered, so memory stays bounded whatever the area's size. An interrupt cancels the tree
/// (the user's stop); an operator's error aborts it. Returns true when every row was delivered,
/// false when the tree was aborted (see `op.cancelled()` and `op.messageHandler()`).
bool render(Iop& op, const ChannelSet& channels, const Box& area, const RenderOptions& options,
            const RowSink& sink);

}  // namespace host
