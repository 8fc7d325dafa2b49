#include "Fluids/Core/TfluidThreads.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int kMaxThreads = 64;
// Elements per summed block: large enough that a block's loop runs at full
// speed, small enough that a 32^3 grid still spreads over two threads.
constexpr std::size_t kSumBlock = 4096;

thread_local bool tInsideWorker = false;

int defaultCount() {
    if (const char* env = std::getenv("MOTILANE_THREADS")) {
        const int n = std::atoi(env);
        if (n >= 1) return std::min(n, kMaxThreads);
    }
    const unsigned hw = std::thread::hardware_concurrency();
    return hw == 0 ? 1 : std::min(int(hw), kMaxThreads);
}

int gCount = 0; // 0: not chosen yet

// Workers 1..n-1 wait for a generation number to change; the caller is part 0.
class Pool {
public:
    ~Pool() { stop(); }

    void run(int parts, std::size_t n, TfluidThreads::RangeFunc fn, void* context) {
        ensureWorkers(parts - 1);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            fn_ = fn;
            context_ = context;
            n_ = n;
            parts_ = parts;
            pending_ = parts - 1;
            ++generation_;
        }
        wake_.notify_all();
        runPart(0);
        std::unique_lock<std::mutex> lock(mutex_);
        done_.wait(lock, [&] { return pending_ == 0; });
    }

private:
    void runPart(int part) const {
        const std::size_t lo = n_ * std::size_t(part) / std::size_t(parts_);
        const std::size_t hi = n_ * std::size_t(part + 1) / std::size_t(parts_);
        if (lo < hi) fn_(context_, lo, hi);
    }

    void ensureWorkers(int wanted) {
        while (int(workers_.size()) < wanted) {
            const int part = int(workers_.size()) + 1;
            workers_.emplace_back([this, part] { loop(part); });
        }
    }

    void loop(int part) {
        tInsideWorker = true;
        unsigned long seen = 0;
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [&] { return quit_ || generation_ != seen; });
            if (quit_) return;
            seen = generation_;
            const bool mine = part < parts_;
            lock.unlock();
            if (!mine) continue;
            runPart(part);
            lock.lock();
            if (--pending_ == 0) done_.notify_one();
        }
    }

    void stop() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            quit_ = true;
        }
        wake_.notify_all();
        for (std::thread& t : workers_)
            t.join();
        workers_.clear();
    }

    std::mutex mutex_;
    std::condition_variable wake_, done_;
    std::vector<std::thread> workers_;
    TfluidThreads::RangeFunc fn_ = nullptr;
    void* context_ = nullptr;
    std::size_t n_ = 0;
    int parts_ = 1;
    int pending_ = 0;
    unsigned long generation_ = 0;
    bool quit_ = false;
};

Pool& pool() {
    static Pool p;
    return p;
}

// Per-block sums, kept between calls (one evaluation thread steps fluids).
std::vector<double>& blockSums() {
    static std::vector<double> sums;
    return sums;
}

} // namespace

int TfluidThreads::count() {
    if (gCount == 0) gCount = defaultCount();
    return gCount;
}

void TfluidThreads::setCount(int n) {
    gCount = n <= 0 ? 0 : std::min(n, kMaxThreads);
}

void TfluidThreads::forRange(std::size_t n, RangeFunc fn, void* context) {
    if (n == 0) return;
    const int parts = int(std::min<std::size_t>(std::size_t(count()), n));
    if (parts <= 1 || tInsideWorker) {
        fn(context, 0, n);
        return;
    }
    pool().run(parts, n, fn, context);
}

double TfluidThreads::sumBlocks(std::size_t n, BlockSum term, void* context) {
    const std::size_t blocks = (n + kSumBlock - 1) / kSumBlock;
    std::vector<double>& sums = blockSums();
    if (sums.size() < blocks) sums.resize(blocks);
    double* out = sums.data();
    forRange(blocks, [&](std::size_t lo, std::size_t hi) {
        for (std::size_t b = lo; b < hi; ++b)
            out[b] = term(context, b * kSumBlock, std::min(n, (b + 1) * kSumBlock));
    });
    double total = 0;
    for (std::size_t b = 0; b < blocks; ++b)
        total += out[b];
    return total;
}
