// The host's process-wide table of channel names.
#include "host/Channel.h"

#include <array>
#include <cctype>
#include <mutex>

namespace host {
namespace {

struct ChannelNames {
    std::mutex mutex;
    std::array<std::string, Chan_Last + 1> names{"", "R", "G", "B", "A"};
};

ChannelNames& channelNames() {
    static ChannelNames table;
    return table;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string getName(Channel z) {
    if (z < 1 || z > Chan_Last) {
        return "black";
    }
    ChannelNames& table = channelNames();
    std::scoped_lock lock(table.mutex);
    const std::string& name = table.names[z];
    return name.empty() ? "channel" + std::to_string(int(z)) : name;
}

Channel getChannel(std::string_view name) {
    for (int z = Chan_Red; z <= Chan_Alpha; ++z) {
        if (equalsIgnoringCase(name, std::string_view("RGBA").substr(z - 1, 1))) {
            return Channel(z);
        }
    }
    ChannelNames& table = channelNames();
    std::scoped_lock lock(table.mutex);
    for (int z = Chan_Alpha + 1; z <= Chan_Last; ++z) {
        if (table.names[z] == name) {
            return Channel(z);
        }
    }
    for (int z = Chan_Alpha + 1; z <= Chan_Last; ++z) {
        if (table.names[z].empty()) {
            table.names[z] = std::string(name);
            return Channel(z);
        }
    }
    return Chan_Black;
}

}  // namespace host
