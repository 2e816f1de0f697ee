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

/// Receives row y once it is complete. Called concurrently for different rows.
using RowSink = std::function<void(int y, Row& row)>;

/// Renders `op`: clears the tree's abort state, gives its operators `options.threads` threads
/// for whole-image computations (Op::render_threads), validates `op`, requests its format area
/// in `channels`, and pulls rows 0 .. height-1 of its format (columns 0 .. width-1) on
/// `options.threads` threads; columns and rows outside the operator's box are zeros.
/// Every finished row goes to `sink`. An interrupt cancels the tree (the user's stop); an
/// operator's error aborts it. Returns true when every row was delivered, false when the
/// tree was aborted (see `op.cancelled()` and `op.messageHandler()`).
bool render(Iop& op, const ChannelSet& channels, const RenderOptions& options, const RowSink& sink);

}  // namespace host
