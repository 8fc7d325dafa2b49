#include "Fluids/Core/TvoxelTraversal.h"

#include <algorithm>

#include "Fluids/Core/Tfluid.h"

TvoxelTraversal::TvoxelTraversal(const Tfluid& fluid)
    : nx_(fluid.nx), ny_(fluid.ny), nz_(fluid.nz), count_(uint32_t(fluid.n)),
      visited_((fluid.n + 63) / 64, 0), rejected_((fluid.n + 63) / 64, 0) {}

void TvoxelTraversal::reset(uint32_t seed) {
    std::fill(visited_.begin(), visited_.end(), 0);
    std::fill(rejected_.begin(), rejected_.end(), 0);
    queue_.clear();
    current_ = expanded_ = 0;
    done_ = seed >= count_;
    if (done_) return;
    mark(seed, true);
    queue_.addLast(seed);
}

uint32_t TvoxelTraversal::next() {
    if (done_) return kNoVoxel;
    ++current_;
    while (current_ >= queue_.length()) {
        if (expanded_ >= queue_.length()) {
            done_ = true;
            return kNoVoxel;
        }
        updateVoxelQueue(true);
    }
    return queue_[unsigned(current_)];
}

void TvoxelTraversal::rejectCurrentVoxel() {
    if (done_) return;
    const uint32_t v = queue_[unsigned(current_)];
    rejected_[v >> 6] |= uint64_t(1) << (v & 63);
    updateVoxelQueue(false);
}

void TvoxelTraversal::updateVoxelQueue(bool add) {
    scratch_.clear();
    if (add) {
        const uint32_t v = queue_[unsigned(expanded_++)];
        if (rejected(v)) return;
        connectedVoxels(v, scratch_);
        for (uint32_t n : scratch_) {
            if (n >= count_ || isVoxelVisited(n)) continue;
            mark(n, true);
            queue_.addLast(n);
        }
        return;
    }
    connectedVoxels(queue_[unsigned(current_)], scratch_);
    for (uint32_t n : scratch_) {
        for (size_t at = current_ + 1; at < queue_.length(); ++at) {
            if (queue_[unsigned(at)] != n) continue;
            queue_.remove(unsigned(at));
            mark(n, false);
            if (at < expanded_) --expanded_;
            break;
        }
    }
}

void TvoxelTraversal::voxelId(uint32_t index, unsigned& i, unsigned& j, unsigned& k) const {
    const size_t plane = size_t(nx_) * ny_;
    k = plane ? unsigned(index / plane) : 0;
    j = nx_ ? unsigned((index % plane) / nx_) : 0;
    i = nx_ ? unsigned(index % nx_) : 0;
}

uint32_t TvoxelTraversal::voxelId(unsigned i, unsigned j, unsigned k) const {
    return uint32_t(i + size_t(nx_) * (j + size_t(ny_) * k));
}

void TvoxelTraversal::debugPrint(FILE* out) const {
    std::fprintf(out, "voxel walk: %u queued, current %zu, expanded %zu%s\n", queue_.length(), current_,
                 expanded_, done_ ? ", done" : "");
    for (unsigned q = 0; q < queue_.length(); ++q) {
        unsigned i, j, k;
        voxelId(queue_[q], i, j, k);
        std::fprintf(out, "  %c%c %u (%u,%u,%u)\n", q == current_ ? '>' : ' ', q < expanded_ ? '*' : ' ',
                     queue_[q], i, j, k);
    }
}

// ---- Surface walk ----

TsurfaceVoxelTraversal::TsurfaceVoxelTraversal(const Tfluid& fluid, int imin, int imax, int jmin, int jmax,
                                               int kmin, int kmax, int axisIndex)
    : TvoxelTraversal(fluid), lo_{imin, jmin, kmin}, hi_{imax, jmax, kmax}, axisIndex_(axisIndex) {}

void TsurfaceVoxelTraversal::addIfInside(int i, int j, int k, std::vector<uint32_t>& out) const {
    if (i < lo_[0] || i > hi_[0] || j < lo_[1] || j > hi_[1] || k < lo_[2] || k > hi_[2]) return;
    if (i < 0 || j < 0 || k < 0 || unsigned(i) >= nx_ || unsigned(j) >= ny_ || unsigned(k) >= nz_) return;
    const uint32_t v = voxelId(unsigned(i), unsigned(j), unsigned(k));
    if (flags_ && !flags_[v]) return;
    out.push_back(v);
}

void TsurfaceVoxelTraversal::connectedVoxels(uint32_t v, std::vector<uint32_t>& out) const {
    unsigned i, j, k;
    voxelId(v, i, j, k);
    const int a = int(i), b = int(j), c = int(k);
    addIfInside(a - 1, b, c, out);
    addIfInside(a + 1, b, c, out);
    addIfInside(a, b - 1, c, out);
    addIfInside(a, b + 1, c, out);
    addIfInside(a, b, c - 1, out);
    addIfInside(a, b, c + 1, out);
}

void TsurfaceVoxelTraversal::uv(float* out) const {
    out[0] = out[1] = 0.0f;
    const uint32_t v = voxel();
    if (v == kNoVoxel) return;
    unsigned idx[3];
    voxelId(v, idx[0], idx[1], idx[2]);
    const unsigned res[3] = {nx_, ny_, nz_};
    const int a = axisIndex_ == 0 ? 1 : 0, b = axisIndex_ == 2 ? 1 : 2;
    out[0] = res[a] ? float((idx[a] + 0.5) / res[a]) : 0.0f;
    out[1] = res[b] ? float((idx[b] + 0.5) / res[b]) : 0.0f;
}
