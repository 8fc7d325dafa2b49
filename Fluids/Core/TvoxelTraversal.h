#pragma once
// Breadth-first walks over the voxels of a fluid. Neighbours are found lazily:
// a voxel is expanded only when the walk has used up everything queued so far,
// so a caller can reject the voxel it stands on before its neighbours are taken.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "Host/Base/Tarray.h"

class Tfluid;

class TvoxelTraversal {
public:
    static constexpr uint32_t kNoVoxel = 0xFFFFFFFFu;

    explicit TvoxelTraversal(const Tfluid& fluid);
    virtual ~TvoxelTraversal() = default;

    // Starts a walk at a voxel index; a seed outside the fluid gives an empty walk.
    void reset(uint32_t seed);
    // Moves to the next voxel and returns it (kNoVoxel once the walk is done).
    uint32_t next();
    // The voxel the walk stands on; its neighbours will not be taken from it.
    void rejectCurrentVoxel();

    uint32_t voxel() const { return done_ ? kNoVoxel : queue_[current_]; }
    bool isDone() const { return done_; }
    bool isVoxelVisited(uint32_t v) const { return v < count_ && (visited_[v >> 6] >> (v & 63)) & 1u; }
    void voxelId(uint32_t index, unsigned& i, unsigned& j, unsigned& k) const;
    uint32_t voxelId(unsigned i, unsigned j, unsigned k) const;
    void debugPrint(FILE* out) const;

protected:
    // Neighbours of a voxel worth visiting, appended to `out`.
    virtual void connectedVoxels(uint32_t v, std::vector<uint32_t>& out) const = 0;
    // add: queue unvisited neighbours of the voxel at `expanded` and move on.
    // Without add: neighbours of the current voxel queued ahead of it are taken
    // out again and unmarked.
    void updateVoxelQueue(bool add);

    unsigned nx_, ny_, nz_;

private:
    void mark(uint32_t v, bool on) {
        if (on)
            visited_[v >> 6] |= uint64_t(1) << (v & 63);
        else
            visited_[v >> 6] &= ~(uint64_t(1) << (v & 63));
    }
    bool rejected(uint32_t v) const { return (rejected_[v >> 6] >> (v & 63)) & 1u; }

    uint32_t count_;
    TuInt32Array queue_;
    std::vector<uint64_t> visited_;
    std::vector<uint64_t> rejected_;
    std::vector<uint32_t> scratch_;
    size_t current_ = 0, expanded_ = 0;
    bool done_ = true;
};

// A walk over face neighbours limited to a box in index space (bounds
// inclusive), optionally to voxels whose flag byte is non-zero.
class TsurfaceVoxelTraversal : public TvoxelTraversal {
public:
    TsurfaceVoxelTraversal(const Tfluid& fluid, int imin, int imax, int jmin, int jmax, int kmin, int kmax,
                           int axisIndex = 2);
    // One byte a voxel, or null to accept every voxel in the box.
    void setFlags(const unsigned char* flags) { flags_ = flags; }
    // Position of the current voxel in the plane normal to the view axis, each
    // coordinate from 0 to 1 across the fluid.
    void uv(float* out) const;

protected:
    void connectedVoxels(uint32_t v, std::vector<uint32_t>& out) const override;
    void addIfInside(int i, int j, int k, std::vector<uint32_t>& out) const;

private:
    int lo_[3], hi_[3];
    int axisIndex_;
    const unsigned char* flags_ = nullptr;
};
