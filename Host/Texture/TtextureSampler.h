#pragma once
// What a 2D texture offers to whoever colours or thins things by it: a colour
// and a transparency at each of many (u, v) points, sampled in one call so
// that no per-point virtual call or graph access is needed.

#include "Host/Data/TdataArrays.h"

class TdependNode;
class Tplug;

class TtextureSampler {
public:
    virtual ~TtextureSampler() = default;
    // colours[k] (r, g, b in x, y, z) and transparencies[k] at (u[k], v[k]); u and v repeat every 1.
    // Arrays of other lengths than u are resized; a shorter v counts as 0.
    virtual void sampleColors(const TdoubleArray& u, const TdoubleArray& v, T4dDblVectorArray& colours,
                              TdoubleArray& transparencies) = 0;

    // The texture driving a plug (or any of its children), or null.
    static TtextureSampler* drivingTexture(const Tplug& plug);
};
