// The emitter's attributes and what dirties its output.

#include "Commands/Emitters/TdynEmitter.h"

#include "Commands/Collisions/TdataSweptGeometry.h"

TDEFINE_NODE(TdynEmitter, TdnVSTdynEmitter, TdynAuxiliary, "pointEmitter", "YEMI")

namespace {
const char* const kDirNames[] = {"directionX", "directionY", "directionZ"};
const char* const kDirShort[] = {"dx", "dy", "dz"};
const char* const kRandNames[] = {"randStateX", "randStateY", "randStateZ"};
const char* const kRandShort[] = {"rstx", "rsty", "rstz"};
const char* const kRateNames[] = {"textureRateR", "textureRateG", "textureRateB"};
const char* const kRateShort[] = {"txrr", "txrg", "txrb"};
const char* const kColorNames[] = {"particleColorR", "particleColorG", "particleColorB"};
const char* const kColorShort[] = {"pcr", "pcg", "pcb"};
const char* const kOffsetNames[] = {"volumeOffsetX", "volumeOffsetY", "volumeOffsetZ"};
const char* const kOffsetShort[] = {"vofx", "vofy", "vofz"};

void perTarget(Tattribute& a) {
    a.setArray(true);
    a.setIndexMatters(true);
}
} // namespace

TdnVSTdynEmitter::TdnVSTdynEmitter()
    : emitterType("emitterType", "emt", makeIffTag("YEMT")), rate("rate", "rat", makeIffTag("RATE")),
      scaleRateByObjectSize("scaleRateByObjectSize", "sro", makeIffTag("SROS")),
      useRatePP("useRatePP", "urpp", makeIffTag("URPP")),
      needParentUV("needParentUV", "npuv", makeIffTag("NPUV")),
      cycleEmission("cycleEmission", "cye", makeIffTag("CYEM")),
      cycleInterval("cycleInterval", "cyi", makeIffTag("SPED")),
      deltaTimeCycle("deltaTimeCycle", "dtc", makeIffTag("DTCY")),
      maxDistance("maxDistance", "max", makeIffTag("MAXD")),
      minDistance("minDistance", "min", makeIffTag("MIND")),
      direction("direction", "d", makeIffTag("EDIR"), kDirNames, kDirShort),
      spread("spread", "spr", makeIffTag("SPRD")), speed("speed", "spd", makeIffTag("SPED")),
      speedRandom("speedRandom", "srnd", makeIffTag("SPRR")),
      tangentSpeed("tangentSpeed", "tspd", makeIffTag("TSPD")),
      normalSpeed("normalSpeed", "nspd", makeIffTag("NSPD")),
      currentTime("currentTime", "ct", makeIffTag("CTIM")),
      inheritFactor("inheritFactor", "inh", makeIffTag("INHR")), isFull("isFull", "full", makeIffTag("FULL")),
      startTime("startTime", "stt", makeIffTag("STRT")), deltaTime("deltaTime", "dt", makeIffTag("DELT")),
      emitCountRemainder("emitCountRemainder", "ecr", makeIffTag("EMCR"), TdataDoubleArray::sClass),
      ratePP("ratePP", "rpp", makeIffTag("RAPP"), TdataDoubleArray::sClass),
      parentId("parentId", "paid", makeIffTag("PAID"), TdataDoubleArray::sClass),
      sweptGeometry("sweptGeometry", "swge", makeIffTag("SWGE"), TdataSweptGeometry::sClass),
      output("output", "ot", makeIffTag("OUTP"), TdataArrayAttrs::sClass),
      seed("seed", "sd", makeIffTag("SEED")),
      randState("randState", "rst", makeIffTag("RAND"), kRandNames, kRandShort),
      enableTextureRate("enableTextureRate", "etr", makeIffTag("ENTR")),
      textureRate("textureRate", "txr", makeIffTag("TXRT"), kRateNames, kRateShort),
      emitFromDark("emitFromDark", "efd", makeIffTag("EMFD")),
      inheritColor("inheritColor", "inhc", makeIffTag("INHC")),
      inheritOpacity("inheritOpacity", "inho", makeIffTag("INHO")),
      invertOpacity("invertOpacity", "invo", makeIffTag("INVO")),
      useLuminance("useLuminance", "usel", makeIffTag("USEL")),
      particleColor("particleColor", "pc", makeIffTag("PCOL"), kColorNames, kColorShort),
      volumeShape("volumeShape", "vol", makeIffTag("VLMS")),
      volumeOffset("volumeOffset", "vof", makeIffTag("VOFF"), kOffsetNames, kOffsetShort),
      volumeEfficiency("volumeEfficiency", "vef", makeIffTag("VEFF")),
      volumeSweep("volumeSweep", "vsw", makeIffTag("VSWP")),
      sectionRadius("sectionRadius", "vsr", makeIffTag("VSRA")),
      awayFromCenter("awayFromCenter", "afc", makeIffTag("AFCE")),
      awayFromAxis("awayFromAxis", "afa", makeIffTag("AFAX")),
      alongAxis("alongAxis", "alx", makeIffTag("ALXI")), aroundAxis("aroundAxis", "arx", makeIffTag("ARXI")),
      randomDirection("randomDirection", "rnd", makeIffTag("RNDI")),
      directionalSpeed("directionalSpeed", "drs", makeIffTag("DRSP")),
      scaleSpeedBySize("scaleSpeedBySize", "ssz", makeIffTag("SPSZ")),
      displaySpeed("displaySpeed", "dss", makeIffTag("DSPS")) {
    const char* types[] = {"direction", "omni", "surface", "curve", "volume"};
    for (int i = 0; i < 5; ++i)
        emitterType.addField(types[i], i);
    emitterType.setNativeDefaultData(1);
    rate.setNativeDefaultData(100);
    rate.setKeyable(true);
    scaleRateByObjectSize.setNativeDefaultData(1);
    cycleEmission.addField("none", 0);
    cycleEmission.addField("frame", 1);
    cycleInterval.setNativeDefaultData(1);
    cycleInterval.setMinValue(1);
    direction.setNativeDefaultData(1, 0, 0);
    speed.setNativeDefaultData(1);
    normalSpeed.setNativeDefaultData(1);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &rate, &spread, &speed, &speedRandom, &tangentSpeed, &normalSpeed, &maxDistance, &minDistance})
        a->setKeyable(true);
    // What a target hands over arrives with the connection; it is not stored with the scene.
    for (Tattribute* a :
         std::initializer_list<Tattribute*>{&deltaTimeCycle, &inheritFactor, &isFull, &startTime, &deltaTime,
                                            &emitCountRemainder, &output, &seed, &randState}) {
        perTarget(*a);
    }
    for (Tattribute* a : std::initializer_list<Tattribute*>{&inheritFactor, &isFull, &startTime, &deltaTime,
                                                            &emitCountRemainder, &ratePP, &parentId,
                                                            &sweptGeometry, &output, &currentTime})
        a->setStorable(false);
    output.setWritable(false);
    output.setComputeModifies(true);
    textureRate.setNativeDefaultData(1, 1, 1);
    particleColor.setNativeDefaultData(0.5, 0.5, 0.5);
    const char* shapes[] = {"cube", "sphere", "cylinder", "cone", "torus"};
    for (int i = 0; i < 5; ++i)
        volumeShape.addField(shapes[i], i);
    volumeEfficiency.setNativeDefaultData(1);
    volumeSweep.setNativeDefaultData(6.28319);
    sectionRadius.setNativeDefaultData(0.5);
    awayFromCenter.setNativeDefaultData(1);
    awayFromAxis.setNativeDefaultData(1);
    displaySpeed.setNativeDefaultData(1);
}

void TdnVSTdynEmitter::appendAttributes(TattributeList& list) {
    TdnVSTdynAuxiliary::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&emitterType,
                                                            &rate,
                                                            &scaleRateByObjectSize,
                                                            &useRatePP,
                                                            &needParentUV,
                                                            &cycleEmission,
                                                            &cycleInterval,
                                                            &deltaTimeCycle,
                                                            &maxDistance,
                                                            &minDistance,
                                                            &direction,
                                                            &spread,
                                                            &speed,
                                                            &speedRandom,
                                                            &tangentSpeed,
                                                            &normalSpeed,
                                                            &currentTime,
                                                            &inheritFactor,
                                                            &isFull,
                                                            &startTime,
                                                            &deltaTime,
                                                            &emitCountRemainder,
                                                            &ratePP,
                                                            &parentId,
                                                            &sweptGeometry,
                                                            &output,
                                                            &seed,
                                                            &randState,
                                                            &enableTextureRate,
                                                            &textureRate,
                                                            &emitFromDark,
                                                            &inheritColor,
                                                            &inheritOpacity,
                                                            &invertOpacity,
                                                            &useLuminance,
                                                            &particleColor,
                                                            &volumeShape,
                                                            &volumeOffset,
                                                            &volumeEfficiency,
                                                            &volumeSweep,
                                                            &sectionRadius,
                                                            &awayFromCenter,
                                                            &awayFromAxis,
                                                            &alongAxis,
                                                            &aroundAxis,
                                                            &randomDirection,
                                                            &directionalSpeed,
                                                            &scaleSpeedBySize,
                                                            &displaySpeed})
        list.addAttribute(a);
}

bool TdnVSTdynEmitter::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTdynAuxiliary::setupDependencies(m)) return false;
    // A new time or a new source makes the births stale; settings alone wait for the next step.
    for (const Tattribute* a : std::initializer_list<const Tattribute*>{
             &currentTime, &deltaTime, &startTime, &isFull, &inheritFactor, &seed, &sweptGeometry, &ratePP,
             &parentId, &ownerPosData, &ownerVelData, &worldMatrix})
        m.attributeAffects(a, &output);
    for (const Tattribute* a :
         std::initializer_list<const Tattribute*>{&volumeShape, &volumeSweep, &sectionRadius, &volumeOffset})
        m.attributeAffects(a, &volumeEfficiency);
    return true;
}
