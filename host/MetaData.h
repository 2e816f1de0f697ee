// Image metadata as the host carries it from readers through operators to writers.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

/// One metadata value: numbers or texts, and the OpenImageIO type name that says how a file
/// stores them ("int", "float", "string", "float[2]", "matrix", "timecode", ...). Numbers are
/// held as doubles: exact for every type up to 32-bit integers and doubles.
struct MetaValue {
    std::string type;
    std::vector<double> numbers;
    std::vector<std::string> texts;

    bool operator==(const MetaValue&) const = default;
};

/// An image's metadata: named values in the order the file listed them.
class MetaData {
public:
    using Entry = std::pair<std::string, MetaValue>;

    /// The value called `name`, or nullptr.
    const MetaValue* find(std::string_view name) const;
    MetaValue* find(std::string_view name);
    /// Adds `name` at the end, or replaces its value where it is.
    void set(std::string_view name, MetaValue value);

    std::vector<Entry>::const_iterator begin() const { return m_entries.begin(); }
    std::vector<Entry>::const_iterator end() const { return m_entries.end(); }
    bool operator==(const MetaData&) const = default;

private:
    std::vector<Entry> m_entries;
};

}  // namespace host
