// Turning a failed host operation into an exception with a readable message.
#pragma once

#include "host/Op.h"

namespace quorblen {

/// Returns when the tree of `op` was not aborted. Otherwise throws a std::string: empty
/// when the user cancelled, else "Host error encountered by fillBuffer(). Operator NAME
/// reported: TEXT", NAME as `host::Op::print_name_cb` prints `op` and TEXT the first error
/// of its message handler ("unexpected error state" when it holds none).
/// Precondition: `op` is not null.
void checkOpError(host::Op* op);

}  // namespace quorblen
