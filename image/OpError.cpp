// The message thrown for a failed host operation.
#include "image/OpError.h"

#include <cassert>
#include <sstream>
#include <string>

namespace quorblen {

void checkOpError(host::Op* op) {
    assert(op != nullptr);
    if (!op->aborted()) {
        return;
    }
    std::string message;
    // A stop the user asked for is not an error worth a message.
    if (!op->cancelled()) {
        std::ostringstream text;
        text << "Host error encountered by fillBuffer(). Operator ";
        host::Op::print_name_cb(text, op);
        text << " reported: "
             << op->messageHandler().getFirstError().value_or("unexpected error state");
        message = text.str();
    }
    throw message;
}

}  // namespace quorblen
