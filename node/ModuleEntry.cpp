// The module's one exported symbol: the operator description it registers when loaded.
#include "node/Quorblen.h"

extern "C" __attribute__((visibility("default"))) const host::Op::Description*
quorblen_module_description() {
    return &quorblen::Quorblen::description;
}
