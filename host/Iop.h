// Image operators: output information, row requests and the engine.
#pragma once

#include "host/Box.h"
#include "host/Channel.h"
#include "host/MetaData.h"
#include "host/Op.h"
#include "host/Row.h"

namespace host {

/// What an image operator produces: its format (the display window), full-size format, data box
/// (the data window, which may reach outside the format), channels and metadata.
class IopInfo : public Box {
public:
    IopInfo();

    const Format& format() const { return *m_format; }
    const Format& full_size_format() const { return *m_full_size_format; }
    /// Points the format at `format`, which must outlive the operator's validation.
    void format(const Format& format) { m_format = &format; }
    void full_size_format(const Format& format) { m_full_size_format = &format; }

    const ChannelSet& channels() const { return m_channels; }
    void channels(const ChannelSet& channels) { m_channels = channels; }

    const Box& box() const { return *this; }
    void set(const Box& box) { static_cast<Box&>(*this) = box; }

    const MetaData& metadata() const { return m_metadata; }
    MetaData& metadata() { return m_metadata; }

private:
    const Format* m_format;
    const Format* m_full_size_format;
    ChannelSet m_channels;
    MetaData m_metadata;
};

/// Base of the operators that produce images. Rows are produced by `engine`, called
/// concurrently from the host's render threads once the operator is validated and
/// requested.
class Iop : public Op {
public:
    explicit Iop(Node* node) : Op(node) {}

    const IopInfo& info() const { return m_info; }
    const Format& format() const { return m_info.format(); }
    const Format& full_size_format() const { return m_info.full_size_format(); }
    const ChannelSet& channels() const { return m_info.channels(); }
    /// The channels this operator changes; the host takes the others from input 0.
    const ChannelSet& out_channels() const { return m_out_channels; }

    /// Input `n` as an image operator, or nullptr.
    Iop* input(int n) const override;
    /// Input 0, which the operator must have.
    Iop& input0() const;

    /// Tells the operator which area and channels will be asked of it, `count` times.
    void request(int x, int y, int r, int t, const ChannelSet& channels, int count);
    const Box& requested_box() const { return m_requested; }

    /// Produces row y, columns x .. r-1, of `channels` into `row`: the changed channels
    /// through `engine`, the others from input 0 (or zeros when there is none).
    void get(int y, int x, int r, const ChannelSet& channels, Row& row);

    /// Fills `channels` of `row` over x .. r-1 for row y. Called concurrently.
    virtual void engine(int y, int x, int r, const ChannelSet& channels, Row& row) = 0;

protected:
    /// Validates input 0 and copies its information (format, box, channels, metadata).
    void copy_info();
    void set_out_channels(const ChannelSet& channels) { m_out_channels = channels; }
    IopInfo& info_() { return m_info; }

    /// Default: copy input 0's information, changing all channels.
    void _validate(bool for_real) override;
    /// Default: ask every input for the same area.
    virtual void _request(int x, int y, int r, int t, const ChannelSet& channels, int count);

private:
    IopInfo m_info;
    ChannelSet m_out_channels = Mask_All;
    Box m_requested;
};

/// An image operator that changes nothing: it passes input 0 through. Subclasses that
/// produce their own pixels override `_validate` and `engine`.
class NoIop : public Iop {
public:
    explicit NoIop(Node* node) : Iop(node) {}
    void engine(int y, int x, int r, const ChannelSet& channels, Row& row) override;

protected:
    void _validate(bool for_real) override;
};

}  // namespace host
