// Knob declaration, parsing and printing.
#include "host/Knobs.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace host {

KnobKind Knob::kind() const {
    switch (m_storage.index()) {
        case 0:
            return KnobKind::Int;
        case 1:
        case 2:
            return KnobKind::Float;
        default:
            return KnobKind::String;
    }
}

std::size_t Knob::field_size() const {
    return std::visit([](auto* p) { return sizeof(*p); }, m_storage);
}

void* Knob::field() const {
    return std::visit([](auto* p) { return static_cast<void*>(p); }, m_storage);
}

namespace {

template <class T>
bool parseNumber(std::string_view text, T& value) {
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    return ec == std::errc() && ptr == end;
}

}  // namespace

bool Knob::set_text(std::string_view text) {
    if (auto* p = std::get_if<int*>(&m_storage)) {
        int value = 0;
        if (!parseNumber(text, value)) {
            return false;
        }
        **p = value;
        return true;
    }
    if (auto* p = std::get_if<std::string*>(&m_storage)) {
        **p = std::string(text);
        return true;
    }
    double value = 0.0;
    if (!parseNumber(text, value) || !std::isfinite(value)) {
        return false;
    }
    if (auto* p = std::get_if<double*>(&m_storage)) {
        **p = value;
    } else {
        *std::get<float*>(m_storage) = static_cast<float>(value);
    }
    return true;
}

std::string Knob::text() const {
    if (auto* p = std::get_if<std::string*>(&m_storage)) {
        return **p;
    }
    std::ostringstream out;
    std::visit(
        [&out](auto* p) {
            if constexpr (!std::is_same_v<decltype(p), std::string*>) {
                out << *p;
            }
        },
        m_storage);
    return out.str();
}

void Int_knob(Knob_Closure& f, int* field, const char* name) {
    f.knobs.emplace_back(name, field);
}
void Float_knob(Knob_Closure& f, double* field, const char* name) {
    f.knobs.emplace_back(name, field);
}
void Float_knob(Knob_Closure& f, float* field, const char* name) {
    f.knobs.emplace_back(name, field);
}
void String_knob(Knob_Closure& f, std::string* field, const char* name) {
    f.knobs.emplace_back(name, field);
}

void Tooltip(Knob_Closure& f, const char* text) {
    if (!f.knobs.empty()) {
        f.knobs.back().set_tooltip(text);
    }
}

}  // namespace host
