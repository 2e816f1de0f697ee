// The host's wrapper around module operators.
#include "host/OpWrapper.h"

namespace host {

OpWrapper::OpWrapper(Iop* wrapped) : Iop(wrapped->node()), m_wrapped(wrapped) {
    join_tree(tree());
}

OpWrapper::~OpWrapper() = default;

void OpWrapper::set_input(int n, Op* op, int input_number, int offset) {
    m_wrapped->set_input(n, op, input_number, offset);
    join_tree(tree());
    invalidate();
}

void OpWrapper::_validate(bool for_real) {
    m_wrapped->invalidate();
    m_wrapped->validate(for_real);
    info_() = m_wrapped->info();
    set_out_channels(Mask_All);
}

void OpWrapper::_request(int x, int y, int r, int t, const ChannelSet& channels, int count) {
    m_wrapped->request(x, y, r, t, channels, count);
}

void OpWrapper::engine(int y, int x, int r, const ChannelSet& channels, Row& row) {
    m_wrapped->get(y, x, r, channels, row);
}

}  // namespace host
