// Host channel numbers, channel sets and channel names.
#pragma once

#include <bit>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

namespace host {

/// A host channel number: 1 .. 31; 0 is "no channel".
enum Channel : int {
    Chan_Black = 0,
    Chan_Red = 1,
    Chan_Green = 2,
    Chan_Blue = 3,
    Chan_Alpha = 4,
    Chan_Last = 31,
};

/// A set of host channels as a bit mask: bit z-1 stands for channel z.
/// Iteration visits the channels in increasing channel number.
class ChannelSet {
public:
    constexpr ChannelSet() = default;
    constexpr explicit ChannelSet(std::uint32_t mask) : m_mask(mask & 0x7FFFFFFFu) {}
    constexpr ChannelSet(Channel z) : m_mask(bit(z)) {}

    constexpr std::uint32_t mask() const { return m_mask; }
    constexpr bool empty() const { return m_mask == 0; }
    constexpr bool contains(Channel z) const { return (m_mask & bit(z)) != 0; }
    constexpr int size() const { return std::popcount(m_mask); }
    constexpr Channel first() const {
        return empty() ? Chan_Black : Channel(std::countr_zero(m_mask) + 1);
    }

    constexpr ChannelSet& operator+=(Channel z) {
        m_mask |= bit(z);
        return *this;
    }
    constexpr ChannelSet& operator+=(ChannelSet s) {
        m_mask |= s.m_mask;
        return *this;
    }
    constexpr ChannelSet& operator-=(Channel z) {
        m_mask &= ~bit(z);
        return *this;
    }
    constexpr ChannelSet operator+(Channel z) const { return ChannelSet(m_mask | bit(z)); }
    constexpr ChannelSet operator&(ChannelSet s) const { return ChannelSet(m_mask & s.m_mask); }
    constexpr ChannelSet operator-(ChannelSet s) const { return ChannelSet(m_mask & ~s.m_mask); }
    constexpr bool operator==(const ChannelSet&) const = default;

    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Channel;
        using difference_type = std::ptrdiff_t;
        using pointer = const Channel*;
        using reference = Channel;

        constexpr iterator() = default;
        constexpr explicit iterator(std::uint32_t rest) : m_rest(rest) {}
        constexpr Channel operator*() const { return Channel(std::countr_zero(m_rest) + 1); }
        constexpr iterator& operator++() {
            m_rest &= m_rest - 1;
            return *this;
        }
        constexpr iterator operator++(int) {
            iterator old = *this;
            ++*this;
            return old;
        }
        constexpr bool operator==(const iterator&) const = default;

    private:
        std::uint32_t m_rest = 0;
    };

    constexpr iterator begin() const { return iterator(m_mask); }
    constexpr iterator end() const { return iterator(0); }

private:
    static constexpr std::uint32_t bit(Channel z) {
        return (z >= 1 && z <= Chan_Last) ? (1u << (z - 1)) : 0u;
    }
    std::uint32_t m_mask = 0;
};

inline constexpr ChannelSet Mask_None{0x0u};
inline constexpr ChannelSet Mask_RGB{0x7u};
inline constexpr ChannelSet Mask_RGBA{0xFu};
inline constexpr ChannelSet Mask_All{0x7FFFFFFFu};

/// The name of channel `z`: "R", "G", "B", "A" for the first four, the registered name of a
/// channel added by `getChannel`, otherwise "channel<z>".
std::string getName(Channel z);

/// The channel called `name`, registering a new one when the name is unknown.
/// "R", "G", "B" and "A" (any case) are channels 1 to 4. Returns Chan_Black when all 31
/// channels are taken. Thread-safe.
Channel getChannel(std::string_view name);

}  // namespace host
