// Sorting and searching of TdynStatic.

#include "Commands/Scene/TdynStatic.h"

#include <algorithm>
#include <numeric>

void TdynStatic::bubbleSort(Tint32Array& values) {
    // For the short arrays it is used on; stops as soon as a pass swaps nothing.
    const unsigned n = values.length();
    for (unsigned pass = 0; pass + 1 < n; ++pass) {
        bool swapped = false;
        for (unsigned i = 0; i + 1 < n - pass; ++i)
            if (values[i] > values[i + 1]) {
                std::swap(values[i], values[i + 1]);
                swapped = true;
            }
        if (!swapped) break;
    }
}

void TdynStatic::quickSort(Tint32Array& values) {
    std::sort(values.begin(), values.end());
}

namespace {
template <class A> void sortWithCompanion(A& values, Tint32Array& companion) {
    const unsigned n = values.length();
    if (companion.length() != n) {
        // No companion given: it becomes the original positions.
        companion.changeLogicalSizeTo(n);
        std::iota(companion.begin(), companion.end(), 0);
    }
    std::vector<unsigned> order(n);
    std::iota(order.begin(), order.end(), 0u);
    // Stable, so equal values keep their order and runs repeat exactly.
    std::stable_sort(order.begin(), order.end(),
                     [&](unsigned a, unsigned b) { return values[a] < values[b]; });
    A sortedValues;
    sortedValues.changeLogicalSizeTo(n);
    Tint32Array sortedCompanion;
    sortedCompanion.changeLogicalSizeTo(n);
    for (unsigned i = 0; i < n; ++i) {
        sortedValues[i] = values[order[i]];
        sortedCompanion[i] = companion[order[i]];
    }
    values = std::move(sortedValues);
    companion = std::move(sortedCompanion);
}
} // namespace

void TdynStatic::quickSortInPlace(Tint32Array& values, Tint32Array& companion) {
    sortWithCompanion(values, companion);
}

void TdynStatic::quickSortInPlace(TdoubleArray& values, Tint32Array& companion) {
    sortWithCompanion(values, companion);
}

int TdynStatic::binarySearch(const Tint32Array& sorted, std::int32_t value) {
    auto it = std::lower_bound(sorted.begin(), sorted.end(), value);
    if (it == sorted.end() || *it != value) return -1;
    return static_cast<int>(it - sorted.begin());
}

bool TdynStatic::findMappedIndexFromValue(const Tint32Array& sortedIds, const Tint32Array& indexOfSorted,
                                          std::int32_t id, int& index) {
    int at = binarySearch(sortedIds, id);
    if (at < 0 || static_cast<unsigned>(at) >= indexOfSorted.length()) return false;
    index = indexOfSorted[static_cast<unsigned>(at)];
    return true;
}
