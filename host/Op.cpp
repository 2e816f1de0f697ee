// Operator base: graph wiring, validation, abort state, knobs and the registry.
#include "host/Op.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <ostream>

namespace host {

// --- message handler -------------------------------------------------------------------------

void OpMessageHandler::error(std::string text) {
    std::scoped_lock lock(m_mutex);
    m_errors.push_back(std::move(text));
}

std::optional<std::string> OpMessageHandler::getFirstError() const {
    std::scoped_lock lock(m_mutex);
    if (m_errors.empty()) {
        return std::nullopt;
    }
    return m_errors.front();
}

void OpMessageHandler::clear() {
    std::scoped_lock lock(m_mutex);
    m_errors.clear();
}

// --- registry --------------------------------------------------------------------------------

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<Op::Description*> entries;
    std::atomic<long> constructed{0};
};

Registry& registry() {
    static Registry instance;
    return instance;
}

void printNodeOrClassName(std::ostream& out, const Op* op) {
    if (op->node() != nullptr) {
        out << op->node()->name();
    } else {
        out << op->Class();
    }
}

}  // namespace

Op::Description::Description(const char* name_, Constructor constructor_, const char* stamp)
    : name(name_), constructor(constructor_), build_stamp(stamp) {
    ctor2();
}

Op::Description::~Description() {
    if (!m_registered) {
        return;
    }
    Registry& reg = registry();
    std::scoped_lock lock(reg.mutex);
    std::erase(reg.entries, this);
}

void Op::Description::ctor2() {
    registry().constructed.fetch_add(1);
    add(this);
}

void Op::Description::add(Description* description) {
    Registry& reg = registry();
    std::scoped_lock lock(reg.mutex);
    // A program that links the module's code and then loads the module sees the same
    // operator twice; the first registration stays, the second is ignored.
    for (const Description* entry : reg.entries) {
        if (std::strcmp(entry->name, description->name) == 0) {
            return;
        }
    }
    reg.entries.push_back(description);
    description->m_registered = true;
}

const Op::Description* Op::Description::find(std::string_view name) {
    Registry& reg = registry();
    std::scoped_lock lock(reg.mutex);
    for (const Description* entry : reg.entries) {
        if (name == entry->name) {
            return entry;
        }
    }
    return nullptr;
}

std::vector<const Op::Description*> Op::Description::all() {
    Registry& reg = registry();
    std::scoped_lock lock(reg.mutex);
    return {reg.entries.begin(), reg.entries.end()};
}

long Op::Description::constructed() {
    return registry().constructed.load();
}

// --- operator --------------------------------------------------------------------------------

void (*Op::print_name_cb)(std::ostream& out, const Op* op) = printNodeOrClassName;

Op::Op(Node* node) : m_node(node), m_tree(std::make_shared<OpTree>()) {}

Op::~Op() = default;

Op* Op::create(std::string_view name, Node* node) {
    const Description* description = Description::find(name);
    return description != nullptr ? description->constructor(node) : nullptr;
}

Op* Op::input(int n) const {
    return (n >= 0 && n < inputs()) ? m_inputs[static_cast<std::size_t>(n)] : nullptr;
}

void Op::set_input(int n, Op* op, int /*input_number*/, int /*offset*/) {
    if (n < 0) {
        return;
    }
    if (n >= inputs()) {
        m_inputs.resize(static_cast<std::size_t>(n) + 1, nullptr);
    }
    m_inputs[static_cast<std::size_t>(n)] = op;
    if (op != nullptr) {
        op->join_tree(m_tree);
    }
    invalidate();
}

std::vector<Op*> Op::upstream() const {
    std::vector<Op*> ops;
    for (Op* op : m_inputs) {
        if (op != nullptr) {
            ops.push_back(op);
        }
    }
    return ops;
}

void Op::join_tree(const std::shared_ptr<OpTree>& tree) {
    m_tree = tree;
    for (Op* op : upstream()) {
        op->join_tree(tree);
    }
}

void Op::validate(bool for_real) {
    if (m_valid && (m_real || !for_real)) {
        return;
    }
    try {
        _validate(for_real);
    } catch (const std::exception& e) {
        error(std::string(Class()) + ": " + e.what());
    }
    // A validation during which the tree aborted (this operator's error or an input's)
    // does not count: the next render validates again and reports again.
    m_valid = !aborted();
    m_real = m_valid && (m_real || for_real);
}

void Op::invalidate() {
    m_valid = false;
    m_real = false;
}

void Op::_validate(bool /*for_real*/) {}

void Op::abort() {
    m_tree->aborted.store(true, std::memory_order_release);
}

void Op::cancel() {
    m_tree->cancelled.store(true, std::memory_order_release);
    m_tree->aborted.store(true, std::memory_order_release);
}

void Op::clear_abort() {
    m_tree->messages.clear();
    m_tree->cancelled.store(false, std::memory_order_release);
    m_tree->aborted.store(false, std::memory_order_release);
}

void Op::error(std::string text) {
    m_tree->messages.error(std::move(text));
    abort();
}

void Op::progress_fraction(double fraction) const {
    if (ProgressSink* sink = m_tree->progress.load()) {
        sink->update(std::clamp(fraction, 0.0, 1.0));
    }
}

void Op::knobs(Knob_Closure& /*f*/) {}

const std::vector<Knob>& Op::knob_list() {
    if (!m_knobs) {
        m_knobs.emplace();
        knobs(*m_knobs);
    }
    return m_knobs->knobs;
}

Knob* Op::knob(std::string_view name) {
    knob_list();
    for (Knob& k : m_knobs->knobs) {
        if (k.name() == name) {
            return &k;
        }
    }
    return nullptr;
}

bool Op::set_knob(std::string_view name, std::string_view text) {
    Knob* k = knob(name);
    if (k == nullptr || !k->set_text(text)) {
        return false;
    }
    invalidate();
    return true;
}

bool Op::set_field(const char* name, const void* value, std::size_t size) {
    Knob* k = knob(name);
    if (k == nullptr || k->field_size() != size) {
        return false;
    }
    std::memcpy(k->field(), value, size);
    invalidate();
    return true;
}

}  // namespace host
