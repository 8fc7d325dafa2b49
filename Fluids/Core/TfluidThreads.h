#pragma once
// The fluid solver's worker threads. Work is split into as many contiguous
// parts as there are threads, each part on its own thread; every part writes
// only its own elements, and sums go through fixed blocks added in block order,
// so a step gives the same bytes whatever the thread count.
//
// The count follows the machine; MOTILANE_THREADS in the environment sets it
// (1 turns threading off). Calls from inside a worker run on that worker alone.

#include <cstddef>
#include <type_traits>

namespace TfluidThreads {

int count();
// For tests and programs that compare thread counts; 0 goes back to the default.
void setCount(int n);

// Runs fn(lo, hi) over [0, n) in count() contiguous parts, all done on return.
using RangeFunc = void (*)(void* context, std::size_t lo, std::size_t hi);
void forRange(std::size_t n, RangeFunc fn, void* context);

template <class F> void forRange(std::size_t n, F&& f) {
    forRange(
        n, [](void* c, std::size_t lo, std::size_t hi) { (*static_cast<std::remove_reference_t<F>*>(c))(lo, hi); },
        const_cast<void*>(static_cast<const void*>(&f)));
}

// The sum of term(lo, hi) over fixed blocks of [0, n), added in block order: the
// result does not depend on the thread count. term returns one block's sum.
using BlockSum = double (*)(void* context, std::size_t lo, std::size_t hi);
double sumBlocks(std::size_t n, BlockSum term, void* context);

template <class F> double sumBlocks(std::size_t n, F&& f) {
    return sumBlocks(
        n, [](void* c, std::size_t lo, std::size_t hi) { return (*static_cast<std::remove_reference_t<F>*>(c))(lo, hi); },
        const_cast<void*>(static_cast<const void*>(&f)));
}

} // namespace TfluidThreads
