// The scene-wide dynamics nodes: the globals (over-sampling, disk cache
// settings) and the controller (switches for the whole scene).

#include "Commands/Particles/TdynParticleShape.h"

#include "Host/Time/TanimTime.h"

#include <algorithm>

TDEFINE_NODE(TdynGlobals, TdnVSTdynGlobals, TdependNode, "dynGlobals", "YDGL")
TDEFINE_NODE(TdynController, TdnVSTdynController, TdependNode, "dynController", "YCTL")

TdnVSTdynGlobals::TdnVSTdynGlobals()
    : overSamples("overSamples", "os", makeIffTag("OVSM")),
      internalOverSamples("internalOverSamples", "ios", makeIffTag("IOVS")),
      useParticleDiskCache("useParticleDiskCache", "upd", makeIffTag("UPDC")),
      cacheDirectory("cacheDirectory", "cd", makeIffTag("RCPA"), TdataString::sClass),
      minFrameCached("minFrameCached", "mnf", makeIffTag("MNFC")),
      maxFrameCached("maxFrameCached", "mxf", makeIffTag("MXFC")),
      confirmedPath("confirmedPath", "cnp", makeIffTag("CNPA"), TdataString::sClass),
      confirmSceneName("confirmSceneName", "csn", makeIffTag("CSNA"), TdataString::sClass) {
    overSamples.setNativeDefaultData(1);
    overSamples.setMinValue(1);
    internalOverSamples.setNativeDefaultData(1);
    internalOverSamples.setComputeModifies(true);
    internalOverSamples.setStorable(false);
}

void TdnVSTdynGlobals::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &overSamples, &internalOverSamples, &useParticleDiskCache, &cacheDirectory, &minFrameCached,
             &maxFrameCached, &confirmedPath, &confirmSceneName})
        list.addAttribute(a);
}

bool TdnVSTdynGlobals::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    m.attributeAffects(&overSamples, &internalOverSamples);
    return true;
}

int TdynGlobals::convertOverSampling(int overSamples) {
    return std::max(1, overSamples);
}

bool TdynGlobals::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    if (plug.attribute() == &vs->internalOverSamples) {
        TdataHandle h = block.outputValue(&vs->internalOverSamples);
        h.set(static_cast<std::int32_t>(convertOverSampling(block.inputValue(&vs->overSamples).asInt())));
        h.setClean();
        return true;
    }
    return TdependNode::computePlug(plug, block);
}

bool TdynGlobals::setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) {
    if (!TdependNode::setCachedValue(plug, handle, context)) return false;
    // A new grid changes every particle object's evaluation time.
    if (plug.attribute() == &sVsData()->overSamples && context.isNormal())
        for (TdependNode* n : TdynStatic::particleNodes())
            TdependGraph::current().dirtyPlug(Tplug(n, TdynParticleShape::sVsData()->currentTime));
    return true;
}

int TdynGlobals::overSamples() {
    double v = 1;
    getAttributeValue(&sVsData()->internalOverSamples, v);
    return static_cast<int>(v);
}

Tstring TdynGlobals::cachePath() {
    Tdata d;
    getAttributeValue(&sVsData()->cacheDirectory, d);
    auto* s = d.as<TdataString>();
    return s ? s->string() : Tstring();
}

void TdynGlobals::timeUnitChanged() {
    if (TdependGraph::hasCurrent()) TdependGraph::current().dirtyPlug(Tplug(this, &sVsData()->overSamples));
}

void TdynGlobals::forceOneActive() {
    activeGlobalsNode(false);
}

TdynGlobals* TdynGlobals::activeGlobalsNode(bool create) {
    if (!TdependGraph::hasCurrent()) return nullptr;
    TdependGraph& g = TdependGraph::current();
    // The first node of the scene's order is the active one.
    for (TdependNode* n : g.nodes())
        if (auto* gl = TdynGlobals::cast(n); gl && gl->isInGraph()) return gl;
    if (!create) return nullptr;
    return TdynGlobals::cast(g.createNode("dynGlobals", "dynGlobals1"));
}

// ---- controller ----

TdnVSTdynController::TdnVSTdynController()
    : lastEvalTime("lastEvalTime", "let", makeIffTag("LEVT")),
      evalTime("evalTime", "evt", makeIffTag("EVLT")), startTime("startTime", "stt", makeIffTag("STRT")),
      startFrame("startFrame", "stf", makeIffTag("STRF")),
      currEvalTime("currEvalTime", "cet", makeIffTag("CEVT")),
      makeDirty("makeDirty", "md", makeIffTag("MKDY")), output("output", "out", makeIffTag("OUTP")),
      traceDepth("traceDepth", "td", makeIffTag("TRCD")),
      particleCache("particleCache", "pc", makeIffTag("PARC")),
      cacheTime("cacheTime", "ct", makeIffTag("CTIM")), doRunup("doRunup", "dru", makeIffTag("DORU")),
      particlesOn("particlesOn", "pon", makeIffTag("PAON")), allOn("allOn", "aon", makeIffTag("ALON")),
      rigidOn("rigidOn", "rgo", makeIffTag("RGON")), particleLOD("particleLOD", "pld", makeIffTag("PLOD")),
      oversample("oversample", "os", makeIffTag("OVSM")), seed("seed", "sd", makeIffTag("SEED")),
      autoCreate("autoCreate", "ac", makeIffTag("AUTO")), firstEval("firstEval", "fev", makeIffTag("FEVL")),
      allOnWhenRun("allOnWhenRun", "awr", makeIffTag("ADWR")),
      startRunup("startRunup", "str", makeIffTag("STRU")),
      breakRunup("breakRunup", "brr", makeIffTag("BKRU")) {
    startFrame.setNativeDefaultData(1);
    traceDepth.setNativeDefaultData(10);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&doRunup, &particlesOn, &allOn, &rigidOn,
                                                            &autoCreate, &firstEval, &allOnWhenRun})
        a->setNativeDefaultData(1);
    particleLOD.setNativeDefaultData(1);
    particleLOD.setMinValue(0);
    particleLOD.setMaxValue(1);
    oversample.setNativeDefaultData(1);
    oversample.setMinValue(1);
}

void TdnVSTdynController::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &lastEvalTime, &evalTime,     &startTime,     &startFrame, &currEvalTime, &makeDirty,
             &output,       &traceDepth,   &particleCache, &cacheTime,  &doRunup,      &particlesOn,
             &allOn,        &rigidOn,      &particleLOD,   &oversample, &seed,         &autoCreate,
             &firstEval,    &allOnWhenRun, &startRunup,    &breakRunup})
        list.addAttribute(a);
}

TdynController* TdynController::controller(bool create) {
    if (!TdependGraph::hasCurrent()) return nullptr;
    TdependGraph& g = TdependGraph::current();
    for (TdependNode* n : g.nodes())
        if (auto* c = TdynController::cast(n); c && c->isInGraph()) return c;
    if (!create) return nullptr;
    auto* c = TdynController::cast(g.createNode("dynController", "dynController1"));
    if (c) c->initialize();
    return c;
}

void TdynController::initialize() {
    resetDefaultValues();
    lockAllPlugs();
}

void TdynController::resetDefaultValues() {
    auto* vs = sVsData();
    for (unsigned i = 0; i < vs->attributeCount(); ++i) {
        Tattribute* a = vs->attribute(i);
        if (a->isNumeric()) setAttributeValue(a, a->defaultNumber());
    }
}

void TdynController::lockAllPlugs() {
    auto* vs = sVsData();
    for (unsigned i = 0; i < vs->attributeCount(); ++i)
        lockPlug(vs->attribute(i));
}

void TdynController::lockPlug(const Tattribute* a) {
    if (!isLocked(a)) fLocked.push_back(a);
}

bool TdynController::isLocked(const Tattribute* a) const {
    return std::find(fLocked.begin(), fLocked.end(), a) != fLocked.end();
}

bool TdynController::legalDisconnection(const Tplug& plug, const Tplug&, bool) const {
    return !isLocked(plug.attribute());
}
