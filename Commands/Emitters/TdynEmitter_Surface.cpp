// Surface and curve emission on the swept geometry of the owner: counts by
// area or length, births spread over each element and through the step, and
// the colour, opacity and rate a texture gives them.

#include "Commands/Collisions/TdataSweptGeometry.h"
#include "Commands/Emitters/TdynEmitter.h"
#include "Host/Texture/TtextureSampler.h"

#include <cmath>

namespace {
constexpr double kEps = 1e-10;
constexpr double kPi = 3.14159265358979323846;

unsigned sumOf(const Tint32Array& counts) {
    unsigned total = 0;
    for (unsigned j = 0; j < counts.length(); ++j)
        if (counts[j] > 0) total += static_cast<unsigned>(counts[j]);
    return total;
}
} // namespace

TdynSweptGeometry* TdynEmitter::sweptGeometry(TdataBlock& block) {
    return sweptGeometryOf(block.inputValue(&emVs()->sweptGeometry).data());
}

bool TdynEmitter::getEmitCountSweptGeo(const Tplug& plug, TdataBlock& block,
                                       const TdynSweptGeometry& geometry, Tint32Array& counts) {
    auto* vs = emVs();
    const double rate = block.inputValue(&vs->rate).asDouble();
    if (rate <= 0) return false;
    const bool lines = geometry.kind == TdynSweptGeometry::kLines;
    TdoubleArray sizes;
    double totalSize = 0;
    if (lines) {
        sizes.changeLogicalSizeTo(static_cast<unsigned>(geometry.lineCount()));
        for (int k = 0; k < geometry.lineCount(); ++k)
            totalSize += sizes[static_cast<unsigned>(k)] =
                geometry.lines[static_cast<unsigned>(k)]->length(1);
    } else {
        sizes.changeLogicalSizeTo(static_cast<unsigned>(geometry.triangleCount()));
        for (int k = 0; k < geometry.triangleCount(); ++k)
            totalSize += sizes[static_cast<unsigned>(k)] =
                geometry.triangles[static_cast<unsigned>(k)]->area();
    }
    const double scale = block.inputValue(&vs->scaleRateByObjectSize).asBool() ? totalSize : 1.0;
    Tdata hold = std::move(block.outputValue(&vs->emitCountRemainder, plug.multiIndex()).data());
    if (!hold.as<TdataDoubleArray>()) hold = makeData<TdataDoubleArray>();
    hold.makeWriter();
    TdoubleArray& rem = hold.as<TdataDoubleArray>()->array();
    if (rem.length() < 1) rem.changeLogicalSizeTo(1);
    // One remainder for the whole geometry.
    const int total = totalEmitCount(
        scale, rate, block.inputValue(&vs->deltaTime, plug.multiIndex()).asTime().seconds(), rem[0]);
    hold.makeHolder();
    block.outputValue(&vs->emitCountRemainder, plug.multiIndex()).set(hold);
    if (total <= 0) return false;
    getEmitCountPerSweptGeo(total, totalSize, sizes, counts);
    return true;
}

bool TdynEmitter::sweptFrame(const Tplug& plug, TdataBlock& block, Frame& f, TdynSweptGeometry*& geometry,
                             int kind, Tint32Array& counts) {
    beginFrame(plug, block, f);
    geometry = sweptGeometry(block);
    const bool usable = geometry && geometry->kind == kind;
    if (usable && !(block.inputValue(&emVs()->deltaTime, f.target).asTime().seconds() > 0))
        geometry->markMoving(false); // a first use with no step shows no motion
    if (!checkFrame(block, f) || !usable) return false;
    getRandomState(f.target, block);
    return readSettings(block, f) && getEmitCountSweptGeo(plug, block, *geometry, counts) &&
           limitBirths(counts) && distancesUsable(f.s);
}

bool TdynEmitter::surfaceEmitter(const Tplug& plug, TdataBlock& block) {
    auto* vs = emVs();
    Frame f;
    TdynSweptGeometry* geometry = nullptr;
    Tint32Array counts;
    if (!sweptFrame(plug, block, f, geometry, TdynSweptGeometry::kTriangles, counts)) {
        endFrame(block, f);
        return true;
    }
    TdoubleArray u, v;
    const bool needUV = block.inputValue(&vs->needParentUV).asBool();
    emitFromTriangle(*geometry, counts, f.s, needUV, u, v, *f.attrs);

    const bool inheritColor = block.inputValue(&vs->inheritColor).asBool();
    const bool inheritOpacity = block.inputValue(&vs->inheritOpacity).asBool();
    TtextureSampler* colorTexture = textureNodeForColor();
    T4dDblVectorArray colours;
    TdoubleArray transparencies, filter;
    // Textures repeat over the unit square.
    normalizeUV(u, v);
    if ((inheritColor || inheritOpacity) && colorTexture) {
        colorTexture->sampleColors(u, v, colours, transparencies);
        computeFilterArray(colours, filter);
    }
    const unsigned n = u.length();
    if (inheritColor) {
        f.attrs->addVectorData("rgbPP");
        T4dDblVectorArray& rgb = *f.attrs->getVectorData("rgbPP");
        rgb.changeLogicalSizeTo(n);
        const T4dDblVector plain = block.inputValue(&vs->particleColor).asVector();
        for (unsigned k = 0; k < n; ++k)
            rgb[k] = colorTexture ? colours[k] : plain;
    }
    if (inheritOpacity) {
        f.attrs->addDoubleData("opacityPP");
        TdoubleArray& op = *f.attrs->getDoubleData("opacityPP");
        op.changeLogicalSizeTo(n);
        const bool luminance = block.inputValue(&vs->useLuminance).asBool();
        const bool invert = block.inputValue(&vs->invertOpacity).asBool();
        for (unsigned k = 0; k < n; ++k) {
            double x = 1;
            if (colorTexture)
                x = luminance ? (colours[k].x + colours[k].y + colours[k].z) / 3.0 : transparencies[k];
            op[k] = invert && colorTexture ? 1 - x : x;
        }
    }
    if (block.inputValue(&vs->enableTextureRate).asBool()) {
        TtextureSampler* rateTexture = textureNodeForRate();
        if (rateTexture && (rateTexture != colorTexture || filter.length() == 0)) {
            rateTexture->sampleColors(u, v, colours, transparencies);
            computeFilterArray(colours, filter);
        }
        if (filter.length() > 0) filterTextureEmission(filter, *f.attrs);
    }
    endFrame(block, f);
    setRandomState(f.target, block);
    return true;
}

bool TdynEmitter::curveEmitter(const Tplug& plug, TdataBlock& block) {
    Frame f;
    TdynSweptGeometry* geometry = nullptr;
    Tint32Array counts;
    if (!sweptFrame(plug, block, f, geometry, TdynSweptGeometry::kLines, counts)) {
        endFrame(block, f);
        return true;
    }
    emitFromLine(*geometry, counts, f.s, block.inputValue(&emVs()->direction).asVector(), *f.attrs);
    endFrame(block, f);
    setRandomState(f.target, block);
    return true;
}

void TdynEmitter::emitFromTriangle(const TdynSweptGeometry& geometry, const Tint32Array& counts,
                                   const TdynEmitSettings& s, bool needParentUV, TdoubleArray& uOut,
                                   TdoubleArray& vOut, TdataArrayAttrs& attrs) {
    const unsigned total = sumOf(counts);
    if (total == 0) return;
    attrs.addDoubleData("timeInStep");
    if (needParentUV) {
        attrs.addDoubleData("parentU");
        attrs.addDoubleData("parentV");
    }
    T4dDblVectorArray* vel = nullptr;
    T4dDblVectorArray& pos = *getOutputDataArrays(attrs, total, &vel);
    TdoubleArray& tis = *attrs.getDoubleData("timeInStep");
    tis.changeLogicalSizeTo(total);
    TdoubleArray* pu = needParentUV ? attrs.getDoubleData("parentU") : nullptr;
    TdoubleArray* pv = needParentUV ? attrs.getDoubleData("parentV") : nullptr;
    if (pu) pu->changeLogicalSizeTo(total), pv->changeLogicalSizeTo(total);
    uOut.changeLogicalSizeTo(total);
    vOut.changeLogicalSizeTo(total);
    const bool offset = s.maxDistance > 0 && s.minDistance <= s.maxDistance;
    const double range = s.maxDistance - s.minDistance;
    const double inherit = s.dt > kEps ? s.inheritFactor / s.dt : 0;
    const unsigned nt = std::min<unsigned>(counts.length(), static_cast<unsigned>(geometry.triangleCount()));
    unsigned out = 0;
    for (unsigned j = 0; j < nt; ++j) {
        const TdynSweptTriangle* tri = geometry.triangles[j];
        const int n = counts[j];
        if (!tri || n <= 0) continue;
        const T4dDblVector N = tri->normal(1);
        const T4dDblVector c0 = tri->vertex(0, 0), c1 = tri->vertex(1, 0), c2 = tri->vertex(2, 0);
        for (int k = 0; k < n; ++k, ++out) {
            T4dDblVector u0;
            getSurfaceEmitVelocity(s.normalSpeed, s.tangentSpeed, N, u0);
            const double sp = s.speedRandom != 0 ? (randgen() - 0.5) * s.speedRandom + s.speed : s.speed;
            T4dDblVector v = u0 * sp;
            const double off = offset ? randgen() * range + s.minDistance : 0;
            const double r1 = randgen();
            const double r2 = randgen();
            double w[3];
            TdynSweptTriangle::randomPointWeight(r1, r2, w);
            const T4dDblVector P1 = tri->linearCombination(w, 1);
            const T4dDblVector P0 = c0 * w[0] + c1 * w[1] + c2 * w[2];
            // Not stratified in time: a surface has many sources.
            const double t = randgen();
            T4dDblVector B = P0 * (1 - t) + P1 * t;
            if (offset) B += u0.normal() * off;
            v += (P1 - P0) * inherit;
            pos[out] = B - v * (s.dt * t);
            (*vel)[out] = v;
            tis[out] = t;
            double uu = 0, vv = 0;
            tri->randomPointTexCoords(w, uu, vv);
            uOut[out] = uu;
            vOut[out] = vv;
            if (pu) (*pu)[out] = uu, (*pv)[out] = vv;
        }
    }
}

void TdynEmitter::emitFromLine(const TdynSweptGeometry& geometry, const Tint32Array& counts,
                               const TdynEmitSettings& s, const T4dDblVector&, TdataArrayAttrs& attrs) {
    const unsigned total = sumOf(counts);
    if (total == 0) return;
    attrs.addDoubleData("timeInStep");
    T4dDblVectorArray* vel = nullptr;
    T4dDblVectorArray& pos = *getOutputDataArrays(attrs, total, &vel);
    TdoubleArray& tis = *attrs.getDoubleData("timeInStep");
    tis.changeLogicalSizeTo(total);
    double angle = kPi * s.spread;
    if (std::fabs(angle) < kEps) angle = 0;
    const bool offset = s.maxDistance > 0 && s.minDistance <= s.maxDistance;
    const double range = s.maxDistance - s.minDistance;
    const double inherit = s.dt > kEps ? s.inheritFactor / s.dt : 0;
    const unsigned nl = std::min<unsigned>(counts.length(), static_cast<unsigned>(geometry.lineCount()));
    unsigned out = 0;
    for (unsigned j = 0; j < nl; ++j) {
        const TdynSweptLine* line = geometry.lines[j];
        const int n = counts[j];
        if (!line || n <= 0) continue;
        // Out from the line along its own normal and along the line itself.
        const T4dDblVector u0 = line->normal(1) * s.normalSpeed + line->tangent(1) * s.tangentSpeed;
        for (int k = 0; k < n; ++k, ++out) {
            const double sp = s.speedRandom != 0 ? (randgen() - 0.5) * s.speedRandom + s.speed : s.speed;
            const double off = offset ? randgen() * range + s.minDistance : 0;
            const double r = randgen();
            const double t = randgen();
            const T4dDblVector P1 = line->pointAt(r, 1);
            const T4dDblVector P0 = line->pointAt(r, 0);
            T4dDblVector v = u0 * sp;
            if (angle > 0) spreadVelocity(u0 * sp, v, angle);
            T4dDblVector B = P0 * (1 - t) + P1 * t;
            if (offset) B += v.normal() * off;
            v += (P1 - P0) * inherit;
            pos[out] = B - v * (s.dt * t);
            (*vel)[out] = v;
            tis[out] = t;
        }
    }
}

// ---- textures ----

TtextureSampler* TdynEmitter::textureNodeForRate() {
    return TtextureSampler::drivingTexture(Tplug(this, &emVs()->textureRate));
}

TtextureSampler* TdynEmitter::textureNodeForColor() {
    return TtextureSampler::drivingTexture(Tplug(this, &emVs()->particleColor));
}
