// Colour lookup tables the host keeps per data type.
#pragma once

namespace host {

/// A colour lookup table. The host owns every table; operators keep only a pointer.
class LUT {
public:
    enum DataType { FLOAT = 0, INT8 = 1, INT16 = 2 };

    /// The host's table for `type`; the same pointer for the whole process.
    static LUT* getLut(int type);

    int type() const { return m_type; }

private:
    explicit LUT(int type) : m_type(type) {}
    int m_type;
};

}  // namespace host
