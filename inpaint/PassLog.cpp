// Where the fill passes print their summary lines.
#include "inpaint/PassLog.h"

#include <iostream>

namespace quorblen {
namespace {

/// This thread's sink; null: std::cout.
thread_local std::ostream* sink = nullptr;

}  // namespace

std::ostream& passLog() {
    return sink != nullptr ? *sink : std::cout;
}

PassLogScope::PassLogScope(std::ostream& stream) : m_previous(sink) {
    sink = &stream;
}

PassLogScope::~PassLogScope() {
    sink = m_previous;
}

}  // namespace quorblen
