#include "Commands/Fields/TdynVolumeAxis.h"

#include "Host/Noise/T4dVectorNoise.h"

#include <algorithm>
#include <cmath>

TDEFINE_NODE(TdynVolumeAxis, TdnVSTdynVolumeAxis, TdynField, "volumeAxisField", "YVXF")

namespace {
const char* const kFreqNames[] = {"turbulenceFrequencyX", "turbulenceFrequencyY", "turbulenceFrequencyZ"};
const char* const kFreqShort[] = {"tfx", "tfy", "tfz"};
const char* const kOffNames[] = {"turbulenceOffsetX", "turbulenceOffsetY", "turbulenceOffsetZ"};
const char* const kOffShort[] = {"tox", "toy", "toz"};
} // namespace

TdnVSTdynVolumeAxis::TdnVSTdynVolumeAxis()
    : invertAttenuation("invertAttenuation", "ia", makeIffTag("INVA")),
      awayFromCenter("awayFromCenter", "afc", makeIffTag("AFCE")),
      awayFromAxis("awayFromAxis", "afa", makeIffTag("AFAX")),
      alongAxis("alongAxis", "alx", makeIffTag("ALXI")), aroundAxis("aroundAxis", "arx", makeIffTag("ARXI")),
      directionalSpeed("directionalSpeed", "drs", makeIffTag("DRSP")),
      direction("direction", "d", makeIffTag("DIRN"), kFieldDirectionNames, kFieldDirectionShortNames),
      displaySpeed("displaySpeed", "dss", makeIffTag("DSPS")),
      turbulence("turbulence", "trb", makeIffTag("TRBL")),
      turbulenceSpeed("turbulenceSpeed", "trs", makeIffTag("TRSP")),
      turbulenceFrequency("turbulenceFrequency", "tf", makeIffTag("TFRQ"), kFreqNames, kFreqShort),
      turbulenceOffset("turbulenceOffset", "to", makeIffTag("TOFF"), kOffNames, kOffShort),
      detailTurbulence("detailTurbulence", "dtr", makeIffTag("DTRB")),
      time("time", "tim", makeIffTag("STIM")) {
    awayFromCenter.setNativeDefaultData(1);
    awayFromAxis.setNativeDefaultData(1);
    direction.setNativeDefaultData(1, 0, 0);
    displaySpeed.setNativeDefaultData(1);
    turbulenceSpeed.setNativeDefaultData(0.2);
    turbulenceFrequency.setNativeDefaultData(1, 1, 1);
}

void TdnVSTdynVolumeAxis::appendAttributes(TattributeList& list) {
    TdnVSTdynField::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &invertAttenuation, &awayFromCenter, &awayFromAxis, &alongAxis, &aroundAxis, &directionalSpeed,
             &direction, &displaySpeed, &turbulence, &turbulenceSpeed, &turbulenceFrequency,
             &turbulenceOffset, &detailTurbulence, &time})
        list.addAttribute(a);
}

bool TdynVolumeAxis::apply(TdynPointReceptor& r, int, bool) {
    auto* vs = sVsData();
    TdataBlock& block = lawBlock();
    // No volume, nothing to flow through.
    const int shape = block.inputValue(&vs->volumeShape).asInt();
    if (shape == 0) return true;
    TdynFieldFrame f;
    if (!prepareFrame(f, false)) return false;
    if (f.magnitude == 0 || !f.primitive) return true;
    const double a = f.attenuation;
    const bool atten = a > 0;
    const TdynVolumePrimitive* prim = f.primitive;
    const TdynVolumeMatrix& M = f.volumeMatrix;

    const T4dDblVector dir =
        f.worldMatrix.transformVector(block.inputValue(&vs->direction).asVector()).normal() *
        block.inputValue(&vs->directionalSpeed).asDouble();
    const double away = (shape == 1 || shape == 2) ? block.inputValue(&vs->awayFromCenter).asDouble()
                                                   : block.inputValue(&vs->awayFromAxis).asDouble();
    const double along = block.inputValue(&vs->alongAxis).asDouble();
    const double around = block.inputValue(&vs->aroundAxis).asDouble();
    const double speed = block.inputValue(&vs->turbulenceSpeed).asDouble();
    const double T = speed * block.inputValue(&vs->time).asTime().valueInThisUnit(kSeconds);
    double Tu = block.inputValue(&vs->turbulence).asDouble();
    if (Tu != 0) {
        const double meanScale = (M.scale.x + M.scale.y + M.scale.z) / 3;
        if (meanScale > 0) Tu /= meanScale;
    }
    const double detail = block.inputValue(&vs->detailTurbulence).asDouble();
    const T4dDblVector tf = block.inputValue(&vs->turbulenceFrequency).asVector();
    const T4dDblVector offset = block.inputValue(&vs->turbulenceOffset).asVector();
    const T4dDblVector freq{std::fabs(tf.x) + 0.01, std::fabs(tf.y) + 0.01, std::fabs(tf.z) + 0.01};
    const double mn = std::min({freq.x, freq.y, freq.z});
    const T4dDblVector amp{mn * Tu / freq.x, mn * Tu / freq.y, mn * Tu / freq.z};
    const bool invert = block.inputValue(&vs->invertAttenuation).asBool();
    const double R = f.maxDistance;
    // Puts back the scale the unit directions lost, keeping each vector's length.
    auto rescale = [&](const T4dDblVector& v) {
        const double L = v.length();
        return T4dDblVector{v.x * M.scale.x, v.y * M.scale.y, v.z * M.scale.z}.normal() * L;
    };
    auto noise = [&](const float q[3], float t) {
        return speed == 0 ? T4dVectorNoise::getNoiseSmooth(q, t).asVector()
                          : T4dVectorNoise::getNoiseSmoothTime(q, t).asVector();
    };

    for (int i = static_cast<int>(r.count()) - 1; i >= 0; --i) {
        const T4dDblVector p = r.position(i);
        if (f.useMaxDistance && prim->distanceFromAxis(p, M) > R) continue;
        if (!prim->isPointInVolume(p, M)) continue;
        T4dDblVector turb;
        if (Tu != 0) {
            const T4dDblVector l = M.toLocal(p) - offset;
            const float q[3] = {static_cast<float>(l.x * freq.x), static_cast<float>(l.y * freq.y),
                                static_cast<float>(l.z * freq.z)};
            const T4dDblVector n0 = noise(q, static_cast<float>(T));
            turb = {amp.x * n0.x, amp.y * n0.y, amp.z * n0.z};
            if (detail != 0) {
                const float qd[3] = {(0.123f + q[0]) * 5.3f, (0.213f + q[1]) * 5.3f, (0.811f + q[2]) * 5.3f};
                const T4dDblVector n1 = noise(qd, static_cast<float>(3.5 * T));
                turb += T4dDblVector{amp.x * detail * n1.x, amp.y * detail * n1.y, amp.z * detail * n1.z};
            }
            turb = M.matrix.transformVector(turb);
        }
        const T4dDblVector va = rescale(prim->vectorFromPointInVolume(kVolumeAway, p, M, false) * away);
        const T4dDblVector vb = rescale(prim->vectorFromPointInVolume(kVolumeAlong, p, M, false) * along);
        const T4dDblVector vc = rescale(prim->vectorFromPointInVolume(kVolumeAround, p, M, false) * around);
        T4dDblVector sum = va + vb + vc + turb + dir;
        if (atten) {
            const double x = std::clamp(1 - prim->distanceFromAxisRatio(p, M, false), 0.0, 1.0);
            sum *= invert ? std::pow(1 - x, a) : std::pow(x, a);
        }
        r.addForce(i, sum * f.magnitude);
    }
    return true;
}
