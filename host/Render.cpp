// The host's multi-threaded row renderer.
#include "host/Render.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <thread>
#include <vector>

namespace host {
namespace {

/// Gathers the progress operators report (a long whole-image computation) and the rows
/// delivered, and shows both as one fraction: when an operator reports, its work counts for
/// most of the render, the rows for the rest.
class RenderProgress : public ProgressSink {
public:
    void update(double fraction) override {
        double seen = m_work.load();
        while (fraction > seen && !m_work.compare_exchange_weak(seen, fraction)) {
        }
        m_reported.store(true);
    }
    double combined(double rows) const {
        return m_reported.load() ? 0.9 * m_work.load() + 0.1 * rows : rows;
    }

private:
    std::atomic<double> m_work{0.0};
    std::atomic<bool> m_reported{false};
};

/// Runs `body`, turning an exception into an error of `op` (which aborts the tree).
template <class Body>
void reportingErrors(Op& op, Body&& body) {
    try {
        body();
    } catch (const std::exception& e) {
        op.error(std::string(op.Class()) + ": " + e.what());
    } catch (...) {
        op.error(std::string(op.Class()) + ": unexpected exception");
    }
}

}  // namespace

bool render(Iop& op, const ChannelSet& channels, const Box& area, const RenderOptions& options,
            const RowSink& sink) {
    op.clear_abort();
    op.set_render_threads(std::max(1, options.threads));
    reportingErrors(op, [&] { op.validate(true); });
    if (op.aborted()) {
        return false;
    }
    reportingErrors(op, [&] { op.request(area.x, area.y, area.r, area.t, channels, 1); });
    if (op.aborted()) {
        return false;
    }
    const Box& box = op.info().box();
    const int x0 = std::clamp(box.x, area.x, area.r);
    const int x1 = std::clamp(box.r, x0, area.r);
    const int height = std::max(area.h(), 0);
    const int threadCount = std::max(1, options.threads);

    // Row i of the area is computed into slot i % window and handed to the sink in order by
    // whichever thread finds the next row ready; a thread whose row would overwrite a slot not
    // yet delivered waits.
    const int window = 4 * threadCount;
    std::vector<Row> slots(std::size_t(window), Row(area.x, std::max(area.x, area.r)));
    std::vector<char> ready(std::size_t(window), 0);
    int delivered = 0;
    bool delivering = false;

    RenderProgress progress;
    op.set_progress_sink(&progress);
    std::atomic<int> nextRow{0};
    std::mutex mutex;
    std::condition_variable changed;
    int running = threadCount;

    auto worker = [&] {
        reportingErrors(op, [&] {
            for (int i = nextRow.fetch_add(1); i < height && !op.aborted();
                 i = nextRow.fetch_add(1)) {
                {
                    std::unique_lock lock(mutex);
                    changed.wait(lock, [&] { return i < delivered + window || op.aborted(); });
                }
                const int y = area.y + i;
                Row& row = slots[std::size_t(i % window)];
                row.erase(channels);
                if (y >= box.y && y < box.t && x0 < x1) {
                    op.get(y, x0, x1, channels, row);
                }
                // An engine that saw the abort gave up without finishing the row.
                if (op.aborted()) {
                    break;
                }
                std::unique_lock lock(mutex);
                ready[std::size_t(i % window)] = 1;
                if (delivering) {
                    continue;  // the thread delivering rows takes this one in its turn
                }
                delivering = true;
                while (delivered < height && ready[std::size_t(delivered % window)] &&
                       !op.aborted()) {
                    const std::size_t slot = std::size_t(delivered % window);
                    lock.unlock();
                    sink(area.y + delivered, slots[slot]);
                    lock.lock();
                    ready[slot] = 0;
                    ++delivered;
                    changed.notify_all();
                }
                delivering = false;
            }
        });
        std::scoped_lock lock(mutex);
        --running;
        changed.notify_all();
    };

    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back(worker);
    }
    {
        std::unique_lock lock(mutex);
        for (;;) {
            if (options.interrupt != nullptr && options.interrupt->load()) {
                op.cancel();
                changed.notify_all();
            }
            if (options.progress != nullptr) {
                const double rows = height > 0 ? double(delivered) / height : 1.0;
                options.progress->update(progress.combined(rows));
            }
            if (running == 0) {
                break;
            }
            changed.wait_for(lock, std::chrono::milliseconds(50), [&] { return running == 0; });
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    op.set_progress_sink(nullptr);
    return !op.aborted();
}

}  // namespace host
