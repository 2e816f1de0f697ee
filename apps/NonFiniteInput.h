// --fixnan: what the upscale and inpaint commands do with input samples that are not finite
// numbers, which a solve would spread over the pixels around them.
#pragma once

#include <atomic>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>

#include "host/Iop.h"
#include "image/ImageBuffer.h"
#include "image/NonFinite.h"

namespace quorblen::app {

class Arguments;

/// The option `fixNanMode` reads, for a command's list of value options.
inline const std::string fixNanOption = "--fixnan";

/// The mode --fixnan names; None when it is absent. Throws UsageError for another word.
NonFiniteMode fixNanMode(const Arguments& arguments);

/// Lists --fixnan and its modes.
void describeFixNan(std::ostream& out);

/// Repairs `pixels`, read from `path`, as `mode` says (repairNonFinite). Under None, when some
/// samples are not finite, prints the warning of `warnNonFinite`. Throws CommandError naming
/// the file and the count under Error, when some are.
void fixNonFinite(ImageBuffer& pixels, NonFiniteMode mode, const std::string& path);

/// Prints on std::clog (which -q silences) that `count` samples of `path` are not finite and
/// how --fixnan repairs them; nothing when `count` is 0.
void warnNonFinite(const std::string& path, std::size_t count);

/// A host operator that serves input 0 repaired as `mode` says: its first row pulls the input's
/// whole box into memory, counts the non-finite samples and repairs them; under Error, when
/// there are some, it reports an error naming `path` and the count, and the tree aborts. The
/// copy is released once the box's last row has been served, as the node pulls each row once,
/// top to bottom; a later row pulls the input again. Rows lie within the box.
class RepairedInput : public host::Iop {
public:
    RepairedInput(NonFiniteMode mode, std::string path);

    const char* Class() const override { return "RepairedInput"; }
    const char* node_help() const override;

    /// How many samples of the input were not finite; 0 before the first row.
    std::size_t nonFiniteCount() const { return m_count.load(); }

    void engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) override;

private:
    /// The input's box in memory, repaired: one plane per channel of `planes`, in host order.
    struct Planes {
        ImageBuffer pixels;
        host::ChannelSet planes;
    };

    /// The repaired input, pulled under the lock when it is not held; null when the tree
    /// aborted.
    std::shared_ptr<const Planes> repaired();

    NonFiniteMode m_mode;
    std::string m_path;
    std::atomic<std::size_t> m_count{0};
    std::mutex m_mutex;  // guards m_repaired
    std::shared_ptr<const Planes> m_repaired;
};

}  // namespace quorblen::app
