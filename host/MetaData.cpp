// Image metadata.
#include "host/MetaData.h"

#include <algorithm>

namespace host {

MetaValue* MetaData::find(std::string_view name) {
    const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const Entry& entry) { return entry.first == name; });
    return found != m_entries.end() ? &found->second : nullptr;
}

const MetaValue* MetaData::find(std::string_view name) const {
    return const_cast<MetaData*>(this)->find(name);
}

void MetaData::set(std::string_view name, MetaValue value) {
    if (MetaValue* existing = find(name)) {
        *existing = std::move(value);
    } else {
        m_entries.emplace_back(std::string(name), std::move(value));
    }
}

}  // namespace host
