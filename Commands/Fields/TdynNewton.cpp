#include "Commands/Fields/TdynNewton.h"

#include "Commands/Particles/TdynParticleShape.h"

#include <algorithm>
#include <cmath>

TDEFINE_NODE(TdynNewton, TdnVSTdynNewton, TdynField, "newtonField", "YNEW")

TdnVSTdynNewton::TdnVSTdynNewton()
    : minDistance("minDistance", "min", makeIffTag("MIND")),
      ownerMassData("ownerMassData", "omd", makeIffTag("OMSD"), TdataDoubleArray::sClass) {
    ownerMassData.setStorable(false);
}

void TdnVSTdynNewton::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    list.addAttribute(&minDistance);
    list.addAttribute(&ownerMassData);
}

bool TdnVSTdynNewton::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTdynField::setupDependencies(m)) return false;
    m.attributeAffects(&ownerMassData, &outputForce);
    return true;
}

namespace {
constexpr double kGravityConstant = -0.667;

// The power of the distance the pull divides by, chosen once per evaluation.
enum class Power { kOne, kLinear, kSquare, kGeneral };
inline double power(Power g, double d, double a) {
    switch (g) {
    case Power::kOne:
        return 1;
    case Power::kLinear:
        return d;
    case Power::kSquare:
        return d * d;
    default:
        return std::pow(d, a);
    }
}
} // namespace

bool TdynNewton::apply(TdynPointReceptor& r, int, bool) {
    TdynFieldFrame f;
    // Unreadable owner points: nothing to pull from, and not a failure of this law.
    if (!prepareFrame(f)) return true;
    auto* vs = sVsData();
    TdataBlock& block = lawBlock();
    const double K = f.magnitude * kGravityConstant;
    const double a = f.attenuation;
    const double dmin = std::max(block.inputValue(&vs->minDistance).asDouble(), 1e-10);
    const Power g = std::fabs(a - 2) < 1e-10   ? Power::kSquare
                    : std::fabs(a) < 1e-10     ? Power::kOne
                    : std::fabs(a - 1) < 1e-10 ? Power::kLinear
                                               : Power::kGeneral;
    const TdoubleArray* ownerMass = nullptr;
    Tdata massData;
    if (TdynParticleShape::cast(ownerObject())) {
        massData = block.inputValue(&vs->ownerMassData).data();
        ownerMass = TdynStatic::dataDoubleArray(massData);
    }
    const T4dDblVector* src = f.sources.data();
    const int ns = static_cast<int>(f.sources.length());
    const int n = static_cast<int>(r.count());
    const double R = f.maxDistance;
    // At attenuation 0 distances compare squared, like the other laws.
    const bool squared = a == 0;
    const double R2 = f.reachSquared(), dmin2 = dmin * dmin;
    auto inReach = [&](const T4dDblVector& rel, double& d) {
        if (squared) {
            const double d2 = rel.lengthSquared();
            if (d2 < dmin2 || d2 > R2) return false;
            d = std::sqrt(d2);
            return true;
        }
        d = rel.length();
        return d >= dmin && d <= R;
    };

    if (!f.applyPerVertex) {
        double M = ns;
        if (ownerMass) {
            M = 0;
            for (double m : *ownerMass)
                M += m;
        }
        for (int i = n - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            const double scale = r.mass(i) * M * K;
            for (int s = ns - 1; s >= 0; --s) {
                const T4dDblVector rel = p - src[s];
                double d;
                if (!inReach(rel, d) || !f.inVolume(p)) continue;
                r.addForce(i, rel / (1 + d) * (scale / power(g, d, a)));
            }
        }
        return true;
    }
    for (int s = ns - 1; s >= 0; --s) {
        const double Mj = ownerMass && static_cast<unsigned>(s) < ownerMass->length() ? (*ownerMass)[s] : 1.0;
        for (int i = n - 1; i >= 0; --i) {
            const T4dDblVector p = r.position(i);
            const T4dDblVector rel = p - src[s];
            double d;
            if (!inReach(rel, d) || !f.inVolume(p)) continue;
            r.addForce(i, rel / (1 + d) * (r.mass(i) * Mj * K / power(g, d, a)));
        }
    }
    return true;
}
