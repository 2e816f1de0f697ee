// Image operators: information, requests and row production.
#include "host/Iop.h"

#include <algorithm>

namespace host {
namespace {

const Format& defaultFormat() {
    static const Format format;
    return format;
}

}  // namespace

IopInfo::IopInfo() : m_format(&defaultFormat()), m_full_size_format(&defaultFormat()) {}

Iop* Iop::input(int n) const {
    return dynamic_cast<Iop*>(Op::input(n));
}

Iop& Iop::input0() const {
    return *input(0);
}

void Iop::copy_info() {
    Iop* in = input(0);
    if (in == nullptr) {
        return;
    }
    in->validate(true);
    m_info = in->info();
}

void Iop::_validate(bool /*for_real*/) {
    copy_info();
    set_out_channels(Mask_All);
}

void Iop::request(int x, int y, int r, int t, const ChannelSet& channels, int count) {
    m_requested = Box{x, y, r, t};
    _request(x, y, r, t, channels, count);
}

void Iop::_request(int x, int y, int r, int t, const ChannelSet& channels, int count) {
    for (Op* op : Op::upstream()) {
        if (auto* iop = dynamic_cast<Iop*>(op)) {
            iop->request(x, y, r, t, channels, count);
        }
    }
}

void Iop::get(int y, int x, int r, const ChannelSet& channels, Row& row) {
    const ChannelSet unchanged = channels - m_out_channels;
    Iop* in = input(0);
    if (unchanged.empty() || in == nullptr) {
        engine(y, x, r, channels, row);
        return;
    }
    in->get(y, x, r, unchanged, row);
    const ChannelSet changed = channels & m_out_channels;
    if (!changed.empty()) {
        engine(y, x, r, changed, row);
    }
}

void NoIop::_validate(bool /*for_real*/) {
    copy_info();
    set_out_channels(Mask_None);
}

void NoIop::engine(int y, int x, int r, const ChannelSet& channels, Row& row) {
    if (Iop* in = input(0)) {
        in->get(y, x, r, channels, row);
    } else {
        row.erase(channels);
    }
}

}  // namespace host
