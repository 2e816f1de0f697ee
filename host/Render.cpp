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

bool render(Iop& op, const ChannelSet& channels, const RenderOptions& options,
            const RowSink& sink) {
    op.clear_abort();
    op.set_render_threads(std::max(1, options.threads));
    reportingErrors(op, [&] { op.validate(true); });
    if (op.aborted()) {
        return false;
    }
    const int width = op.format().width;
    const int height = op.format().height;
    reportingErrors(op, [&] { op.request(0, 0, width, height, channels, 1); });
    if (op.aborted()) {
        return false;
    }
    const Box& box = op.info().box();
    const int x0 = std::clamp(box.x, 0, width);
    const int x1 = std::clamp(box.r, x0, width);

    RenderProgress progress;
    op.set_progress_sink(&progress);
    std::atomic<int> nextRow{0};
    std::atomic<int> rowsDone{0};
    std::mutex mutex;
    std::condition_variable finished;
    int running = std::max(1, options.threads);

    auto worker = [&] {
        reportingErrors(op, [&] {
            Row row(0, width);
            for (int y = nextRow.fetch_add(1); y < height && !op.aborted();
                 y = nextRow.fetch_add(1)) {
                row.erase(channels);
                if (y >= box.y && y < box.t && x0 < x1) {
                    op.get(y, x0, x1, channels, row);
                }
                // An engine that saw the abort gave up without finishing the row.
                if (op.aborted()) {
                    break;
                }
                sink(y, row);
                rowsDone.fetch_add(1);
            }
        });
        std::scoped_lock lock(mutex);
        --running;
        finished.notify_all();
    };

    std::vector<std::thread> threads;
    const int threadCount = running;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back(worker);
    }
    {
        std::unique_lock lock(mutex);
        for (;;) {
            if (options.interrupt != nullptr && options.interrupt->load()) {
                op.cancel();
            }
            if (options.progress != nullptr) {
                const double rows = height > 0 ? double(rowsDone.load()) / height : 1.0;
                options.progress->update(progress.combined(rows));
            }
            if (running == 0) {
                break;
            }
            finished.wait_for(lock, std::chrono::milliseconds(50), [&] { return running == 0; });
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    op.set_progress_sink(nullptr);
    return !op.aborted();
}

}  // namespace host
