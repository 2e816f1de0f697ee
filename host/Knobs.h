// Knobs: the named, typed settings an operator exposes to the host.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace host {

enum class KnobKind { Int, Float, String };

/// One knob: a name, its kind, the operator field it is bound to and its tooltip.
class Knob {
public:
    using Storage = std::variant<int*, double*, float*, std::string*>;

    Knob(std::string name, Storage storage) : m_name(std::move(name)), m_storage(storage) {}

    const std::string& name() const { return m_name; }
    KnobKind kind() const;
    const std::string& tooltip() const { return m_tooltip; }
    void set_tooltip(std::string text) { m_tooltip = std::move(text); }

    /// Size in bytes of the bound field, as `Op::set_field` checks it.
    std::size_t field_size() const;
    void* field() const;

    /// Parses `text` for this knob's kind and stores it. Integer knobs take whole numbers,
    /// floating-point knobs any finite number. Returns false, storing nothing, when the
    /// text is not such a value.
    bool set_text(std::string_view text);

    /// The current value as text.
    std::string text() const;

private:
    std::string m_name;
    Storage m_storage;
    std::string m_tooltip;
};

/// What an operator's `knobs` call fills: the knobs in declaration order.
class Knob_Closure {
public:
    std::vector<Knob> knobs;
};

void Int_knob(Knob_Closure& f, int* field, const char* name);
void Float_knob(Knob_Closure& f, double* field, const char* name);
void Float_knob(Knob_Closure& f, float* field, const char* name);
void String_knob(Knob_Closure& f, std::string* field, const char* name);
/// Gives the knob declared last its tooltip.
void Tooltip(Knob_Closure& f, const char* text);

}  // namespace host
