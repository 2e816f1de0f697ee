// --fixnan: repairing or refusing input samples that are not finite numbers.
#include "apps/NonFiniteInput.h"

#include <cassert>
#include <iostream>

#include "apps/CommandLine.h"
#include "image/FillBuffer.h"
#include "image/RowCopy.h"

namespace quorblen::app {

NonFiniteMode fixNanMode(const Arguments& arguments) {
    const std::optional<std::string> name = arguments.value(fixNanOption);
    if (!name) {
        return NonFiniteMode::None;
    }
    if (const NonFiniteModeInfo* info = findNonFiniteMode(*name)) {
        return info->mode;
    }
    throw UsageError(fixNanOption + " must be one of " + nonFiniteModeNames("") + ", not \"" +
                     *name + "\"");
}

void describeFixNan(std::ostream& out) {
    out << "      " << fixNanOption
        << " MODE  what to do with input samples that are not finite numbers (NaN or\n"
           "                      infinite), which the solve would spread (default: none):\n";
    for (const NonFiniteModeInfo& info : nonFiniteModes()) {
        out << "                      " << info.name << ": " << info.meaning << "\n";
    }
}

void warnNonFinite(const std::string& path, std::size_t count) {
    if (count > 0) {
        std::clog << "warning: " << path << ": " << nonFiniteText(count) << "; " << fixNanOption
                  << " black or box3 repairs them\n";
    }
}

void fixNonFinite(ImageBuffer& pixels, NonFiniteMode mode, const std::string& path) {
    const std::size_t count = countNonFinite(pixels);
    if (count > 0 && mode == NonFiniteMode::Error) {
        throw CommandError(path + ": " + nonFiniteText(count));
    }
    if (mode == NonFiniteMode::None) {
        warnNonFinite(path, count);
    }
    repairNonFinite(pixels, mode);
}

RepairedInput::RepairedInput(NonFiniteMode mode, std::string path)
    : host::Iop(nullptr), m_mode(mode), m_path(std::move(path)) {}

const char* RepairedInput::node_help() const {
    return "Serves its input with the samples that are not finite numbers repaired.";
}

std::shared_ptr<const RepairedInput::Planes> RepairedInput::repaired() {
    std::scoped_lock lock(m_mutex);
    if (m_repaired == nullptr && !aborted()) {
        auto input = std::make_shared<Planes>();
        input->planes = input0().channels();
        fillBuffer(*this, input->pixels, input->planes);
        if (aborted()) {
            return nullptr;
        }
        m_count = countNonFinite(input->pixels);
        if (m_count > 0 && m_mode == NonFiniteMode::Error) {
            error(m_path + ": " + nonFiniteText(m_count));
            return nullptr;
        }
        repairNonFinite(input->pixels, m_mode);
        m_repaired = std::move(input);
    }
    return m_repaired;
}

void RepairedInput::engine(int y, int x, int r, const host::ChannelSet& channels, host::Row& row) {
    const std::shared_ptr<const Planes> input = repaired();
    if (input == nullptr) {
        return;
    }
    const host::Box& box = info().box();
    assert(y >= box.y && y < box.t && x >= box.x && r <= box.r);
    serveRow(input->pixels, input->planes, box, y, x, r, channels, row);
    if (y == box.t - 1) {
        std::scoped_lock lock(m_mutex);
        m_repaired.reset();
    }
}

}  // namespace quorblen::app
