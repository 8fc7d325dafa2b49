#include "Commands/Fields/TdynAir.h"

#include "Commands/Scene/TdynStatic.h"

#include <algorithm>
#include <cmath>

TDEFINE_NODE(TdynAir, TdnVSTdynAir, TdynField, "airField", "YAIR")

TdnVSTdynAir::TdnVSTdynAir()
    : direction("direction", "d", makeIffTag("DIRN"), kFieldDirectionNames, kFieldDirectionShortNames),
      speed("speed", "spd", makeIffTag("SPED")), inheritVelocity("inheritVelocity", "iv", makeIffTag("IVEL")),
      componentOnly("componentOnly", "co", makeIffTag("CMPO")), spread("spread", "spr", makeIffTag("SPRD")),
      enableSpread("enableSpread", "es", makeIffTag("ESPD")),
      inheritRotation("inheritRotation", "ir", makeIffTag("IROT")) {}

void TdnVSTdynAir::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &direction, &speed, &inheritVelocity, &componentOnly, &spread, &enableSpread, &inheritRotation})
        list.addAttribute(a);
}

bool TdynAir::apply(TdynPointReceptor& r, int, bool useReceptorDeltaTime) {
    TdynFieldFrame f;
    auto* vs = sVsData();
    TdataBlock& block = lawBlock();
    const bool hasOwner = ownerShape() != nullptr;
    const bool perVertex = block.inputValue(&vs->applyPerVertex).asBool();
    // The owner's velocities are required before anything else is read.
    Tdata ownerVel;
    const T4dDblVectorArray* V = nullptr;
    if (hasOwner) {
        ownerVel = block.inputValue(&vs->ownerVelData).data();
        V = TdynStatic::dataVectorArray(ownerVel);
        if (!V) return false;
    }
    if (!prepareFrame(f)) return false;

    const double a = f.attenuation;
    double mag = f.magnitude;
    const bool spreadOn = block.inputValue(&vs->enableSpread).asBool();
    bool flip = false;
    if (spreadOn && mag < 0) {
        mag = -mag;
        flip = true;
    }
    double R = std::numeric_limits<double>::max();
    if (f.useMaxDistance) {
        R = f.maxDistance;
        if (R == 0) return true;
    }
    const double cs = std::cos(block.inputValue(&vs->spread).asDouble() * 1.57079632679);
    T4dDblVector wdir = block.inputValue(&vs->direction).asVector().normal();
    if (block.inputValue(&vs->inheritRotation).asBool())
        wdir = TdynStatic::matrixWithoutTranslation(TdynStatic::matrixWithoutScale(f.worldMatrix))
                   .transformVector(wdir);
    const double iv = block.inputValue(&vs->inheritVelocity).asDouble();
    const double k = std::clamp(block.inputValue(&vs->speed).asDouble(), 0.0, 1.0);
    const bool componentOnly = block.inputValue(&vs->componentOnly).asBool();

    T4dDblVectorArray ownVelocity;
    if (!hasOwner) {
        // The field's own motion since the last evaluation.
        const T4dDblPoint P = f.worldMatrix.getTranslation();
        const double dt = lawDeltaTime(r, useReceptorDeltaTime);
        ownVelocity.addLast(dt > 1e-10 ? (P - fLastPosition) / dt : T4dDblVector());
        fLastPosition = P;
        V = &ownVelocity;
    }

    const double R2 = f.reachSquared();
    const bool useMax = f.useMaxDistance;
    // Whether the point is within reach, and its distance.
    auto reach = [&](const T4dDblVector& rel, double& d) {
        if (!useMax) {
            d = rel.length();
            return true;
        }
        if (a == 0) {
            const double d2 = rel.lengthSquared();
            d = std::sqrt(d2);
            return d2 <= R2;
        }
        d = rel.length();
        return d <= R;
    };
    // One source's effect on one point; false when there is none.
    auto windStep = [&](T4dDblVector wind, const T4dDblVector& rel, double d, const T4dDblVector& v,
                        T4dDblVector& result) {
        if (spreadOn) {
            const bool zero = wind == T4dDblVector();
            if (!zero && !(cs <= rel.normal().dot(wind.normal()))) return false;
            // Inside the cone the air flows straight out from the source.
            wind = rel.normal() * wind.length();
        }
        T4dDblVector delta;
        if (!componentOnly) {
            delta = wind - v;
        } else if (wind != T4dDblVector()) {
            const T4dDblVector w = wind.normal();
            const T4dDblVector c = w * v.dot(w);
            if (c.lengthSquared() < wind.lengthSquared() || wind.dot(c) < 0) delta = wind - c;
        }
        if (delta == T4dDblVector()) return false;
        result = delta * k;
        if (useMax) result *= std::pow((R - d) / R, a);
        if (flip) result = -result;
        return true;
    };

    const int n = static_cast<int>(r.count());
    if (!perVertex || !hasOwner) {
        T4dDblVector mean;
        for (const T4dDblVector& v : *V)
            mean += v;
        if (V->length() > 0) mean /= V->length();
        const T4dDblVector wind = wdir * mag + mean * iv;
        const T4dDblVector s = f.sources.length() ? f.sources[0] : T4dDblVector();
        for (int i = n - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            const T4dDblVector rel = p - s;
            double d;
            if (!reach(rel, d) || !f.inVolume(p)) continue;
            T4dDblVector result;
            if (windStep(wind, rel, d, r.velocity(i), result)) r.addForce(i, result);
        }
        return true;
    }
    if (f.sources.length() != V->length()) return false;
    const int ns = static_cast<int>(f.sources.length());
    for (int i = n - 1; i >= 0; --i) {
        const T4dDblVector p = r.position(i);
        const T4dDblVector v = r.velocity(i);
        T4dDblVector sum;
        double top = 0;
        for (int j = ns - 1; j >= 0; --j) {
            const T4dDblVector rel = p - f.sources[j];
            double d;
            if (!reach(rel, d) || !f.inVolume(p)) continue;
            T4dDblVector result;
            if (!windStep(wdir * mag + (*V)[j] * iv, rel, d, v, result)) continue;
            sum += result;
            top = std::max(top, result.length());
        }
        // The direction of the sum at the strength of the strongest source.
        r.addForce(i, sum.normal() * top);
    }
    return true;
}
