// The host's operator base class, its message handler, registry and graph nodes.
#pragma once

#include <atomic>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Knobs.h"

namespace host {

/// A node of the host's graph: what the user sees and names. Operators built for a node
/// print its name in messages.
class Node {
public:
    explicit Node(std::string name) : m_name(std::move(name)) {}
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
};

/// Collects the errors the operators of one tree report. Thread-safe.
class OpMessageHandler {
public:
    void error(std::string text);
    /// The first error reported since the last `clear`, if any.
    std::optional<std::string> getFirstError() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_errors;
};

/// Receives the progress of a render as a fraction in [0, 1]. Called from render threads.
class ProgressSink {
public:
    virtual ~ProgressSink() = default;
    virtual void update(double fraction) = 0;
};

/// The state the operators wired into one tree share: abort and cancel flags, the error
/// messages, the progress sink of the render in flight and the threads the host lets an
/// operator use (0: none set).
struct OpTree {
    std::atomic<bool> aborted{false};
    std::atomic<bool> cancelled{false};
    OpMessageHandler messages;
    std::atomic<ProgressSink*> progress{nullptr};
    std::atomic<int> render_threads{0};
};

/// Base of every operator. Operators are wired into a tree through `set_input`; every
/// operator upstream of another shares its tree (abort flag, messages).
class Op {
public:
    using Constructor = Op* (*)(Node* node);

    /// A registry entry: the operator's name, its factory and the build stamp it was
    /// compiled with. A static Description adds itself to the registry when constructed
    /// (at load time of the module holding it) and leaves it when destroyed. A second
    /// description of a name already registered is ignored.
    class Description {
    public:
        Description(const char* name, Constructor constructor, const char* build_stamp);
        ~Description();
        Description(const Description&) = delete;
        Description& operator=(const Description&) = delete;

        const char* name;
        Constructor constructor;
        const char* build_stamp;

        /// The registered description called `name`, or nullptr.
        static const Description* find(std::string_view name);
        /// Every registered description, in registration order.
        static std::vector<const Description*> all();
        /// How many descriptions have been constructed in this process, registered or not;
        /// the module loader compares it around loading a module.
        static long constructed();

    private:
        void ctor2();
        static void add(Description* description);
        bool m_registered = false;
    };

    explicit Op(Node* node);
    virtual ~Op();
    Op(const Op&) = delete;
    Op& operator=(const Op&) = delete;

    /// Builds the operator registered as `name` for `node`; nullptr when no such name.
    static Op* create(std::string_view name, Node* node);

    Node* node() const { return m_node; }

    virtual const char* Class() const = 0;
    virtual const char* node_help() const = 0;

    // --- graph -------------------------------------------------------------------------
    int inputs() const { return static_cast<int>(m_inputs.size()); }
    /// Input `n`, or nullptr when it is not connected.
    virtual Op* input(int n) const;
    /// Connects `op` as input `n`; `op` and everything upstream of it join this tree.
    virtual void set_input(int n, Op* op, int input_number = 0, int offset = 0);
    /// Operators this one pulls from: its inputs, and for a wrapper the wrapped operator.
    virtual std::vector<Op*> upstream() const;

    // --- validation ----------------------------------------------------------------------
    /// Runs `_validate` unless the operator is valid already (a real validation is
    /// needed once after a validation that was not for real).
    void validate(bool for_real = true);
    /// Forgets the validation, so that the next `validate` runs `_validate` again.
    void invalidate();
    bool valid() const { return m_valid; }

    // --- abort, cancel and errors (shared by the whole tree) ------------------------------
    bool aborted() const { return m_tree->aborted.load(std::memory_order_acquire); }
    /// True when the abort was the user's (Ctrl-C, a cancel button), not an error.
    bool cancelled() const { return m_tree->cancelled.load(std::memory_order_acquire); }
    void abort();
    void cancel();
    /// Clears the abort and cancel flags and the messages of the tree; the host does so
    /// before every render.
    void clear_abort();
    /// Reports an error: the text goes to the tree's message handler and the tree aborts.
    void error(std::string text);
    OpMessageHandler& messageHandler() const { return m_tree->messages; }

    // --- progress --------------------------------------------------------------------------
    /// Tells the render in flight, if any, how far this operator's work has got.
    void progress_fraction(double fraction) const;
    /// Installs (or with nullptr removes) the progress sink of the tree.
    void set_progress_sink(ProgressSink* sink) { m_tree->progress.store(sink); }

    // --- threads ---------------------------------------------------------------------------
    /// How many threads an operator may use for one whole-image computation, as the host's
    /// render settings give it; 0 when the host sets nothing (then every core).
    int render_threads() const { return m_tree->render_threads.load(); }
    /// Sets the threads of the tree's operators (0: unset).
    void set_render_threads(int threads) { m_tree->render_threads.store(threads); }

    // --- knobs -----------------------------------------------------------------------------
    /// Declares the operator's knobs; the host calls it once to bind them.
    virtual void knobs(Knob_Closure& f);
    /// The knobs as `knobs` declared them.
    const std::vector<Knob>& knob_list();
    /// The knob called `name`, or nullptr.
    Knob* knob(std::string_view name);
    /// Sets knob `name` from text and invalidates the operator. False when there is no such
    /// knob or the text is not a value of its kind.
    bool set_knob(std::string_view name, std::string_view text);
    /// Copies `size` bytes into the field bound to knob `name`, as the host does for
    /// settings it has no knob panel for. False when there is no such knob or its field has
    /// another size.
    bool set_field(const char* name, const void* value, std::size_t size);

    /// How the host prints an operator's name in messages: the node's name, or the
    /// operator's class when it has no node. Replaceable by the host application.
    static void (*print_name_cb)(std::ostream& out, const Op* op);

protected:
    virtual void _validate(bool for_real);
    /// Makes this operator (and, recursively, its upstream) part of `tree`.
    void join_tree(const std::shared_ptr<OpTree>& tree);
    const std::shared_ptr<OpTree>& tree() const { return m_tree; }

private:
    Node* m_node;
    std::vector<Op*> m_inputs;
    std::shared_ptr<OpTree> m_tree;
    std::optional<Knob_Closure> m_knobs;
    bool m_valid = false;
    bool m_real = false;
};

}  // namespace host
