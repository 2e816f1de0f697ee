// The host's wrapper around an operator a module builds.
#pragma once

#include <memory>

#include "host/Iop.h"

namespace host {

/// Owns an operator built by a module and stands for it in the host's graph: inputs,
/// validation, requests, rows, knobs and texts all go to the wrapped operator, which
/// shares the wrapper's tree.
class OpWrapper : public Iop {
public:
    /// Takes ownership of `wrapped`.
    explicit OpWrapper(Iop* wrapped);
    ~OpWrapper() override;

    Iop& wrapped() const { return *m_wrapped; }

    const char* Class() const override { return m_wrapped->Class(); }
    const char* node_help() const override { return m_wrapped->node_help(); }
    void knobs(Knob_Closure& f) override { m_wrapped->knobs(f); }

    Iop* input(int n) const override { return m_wrapped->input(n); }
    void set_input(int n, Op* op, int input_number = 0, int offset = 0) override;
    std::vector<Op*> upstream() const override { return {m_wrapped.get()}; }

    void engine(int y, int x, int r, const ChannelSet& channels, Row& row) override;

protected:
    void _validate(bool for_real) override;
    void _request(int x, int y, int r, int t, const ChannelSet& channels, int count) override;

private:
    std::unique_ptr<Iop> m_wrapped;
};

}  // namespace host
