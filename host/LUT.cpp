// The host's lookup tables.
#include "host/LUT.h"

#include <array>

namespace host {

LUT* LUT::getLut(int type) {
    static std::array<LUT, 3> tables{LUT(FLOAT), LUT(INT8), LUT(INT16)};
    return (type >= 0 && type < 3) ? &tables[type] : &tables[FLOAT];
}

}  // namespace host
