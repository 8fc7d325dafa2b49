// The particle node's attributes, in their fixed order, and what dirties what.

#include "Commands/Particles/TdynParticleShape.h"

#include "Commands/Collisions/TdataSweptGeometry.h"

#include <utility>

TDEFINE_NODE(TdynParticleShape, TdnVSTdynParticleShape, TgeometryShape, "particle", "YPAR")

namespace {
const bool kRegistered = [] {
    TdynStatic::registerDynamicType(TdynParticleShape::sMetaclass());
    return true;
}();
} // namespace

template <class A, class... Args> A* TdnVSTdynParticleShape::make(Args&&... args) {
    auto owned = std::make_unique<A>(std::forward<Args>(args)...);
    A* raw = owned.get();
    fOwned.push_back(std::move(owned));
    return raw;
}

TdnVSTdynParticleShape::TdnVSTdynParticleShape() = default;
TdnVSTdynParticleShape::~TdnVSTdynParticleShape() = default;

void TdnVSTdynParticleShape::appendAttributes(TattributeList& list) {
    TdnVSTgeometryShape::appendAttributes(list);
    const unsigned before = list.count();

    auto add = [&](Tattribute* a) {
        list.addAttribute(a);
        return a;
    };
    auto vec = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeTyped>(n, s, makeIffTag(tag), TdataVectorArray::sClass));
    };
    auto dbl = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeTyped>(n, s, makeIffTag(tag), TdataDoubleArray::sClass));
    };
    auto ints = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeTyped>(n, s, makeIffTag(tag), TdataInt32Array::sClass));
    };
    auto attrs = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeTyped>(n, s, makeIffTag(tag), TdataArrayAttrs::sClass));
    };
    auto str = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeTyped>(n, s, makeIffTag(tag), TdataString::sClass));
    };
    auto mat = [&](const char* n, const char* s, const char* tag) {
        Tattribute* a = make<TattributeTyped>(n, s, makeIffTag(tag), TdataMatrix::sClass);
        a->setNativeDefaultData(makeMatrixData(T4dDblMatrix()));
        return add(a);
    };
    auto num = [&](auto* attr, double def) {
        attr->setNativeDefaultData(def);
        return add(attr);
    };
    auto d = [&](const char* n, const char* s, const char* tag, double def = 0) {
        return num(make<TattributeDouble>(n, s, makeIffTag(tag)), def);
    };
    auto i32 = [&](const char* n, const char* s, const char* tag, double def = 0) {
        return num(make<TattributeInt32>(n, s, makeIffTag(tag)), def);
    };
    auto b = [&](const char* n, const char* s, const char* tag, bool def = false) {
        return num(make<TattributeBoolean>(n, s, makeIffTag(tag)), def ? 1.0 : 0.0);
    };
    auto t = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeTime>(n, s, makeIffTag(tag)));
    };
    auto msg = [&](const char* n, const char* s, const char* tag) {
        return add(make<TattributeMessage>(n, s, makeIffTag(tag)));
    };
    auto multi = [&](Tattribute* a) {
        a->setArray(true);
        a->setIndexMatters(true);
        return a;
    };
    auto vec3 = [&](const char* n, const char* s, const char* tag) {
        auto* c = make<Tattribute3Double>(n, s, makeIffTag(tag));
        add(c);
        return c;
    };
    auto internal = [](Tattribute* a) {
        a->setInternal(true);
        a->setStorable(false);
        return a;
    };
    auto computed = [](Tattribute* a) {
        a->setStorable(false);
        return a;
    };

    position = vec("position", "pos", "POSN");
    rampPosition = vec("rampPosition", "rps", "RPOS");
    centroid = vec3("centroid", "ctd", "CTRD");
    worldPosition = computed(vec("worldPosition", "wps", "WPOS"));
    lastPosition = computed(vec("lastPosition", "lps", "LPOS"));
    velocity = vec("velocity", "vel", "VELC");
    rampVelocity = vec("rampVelocity", "rvl", "RVEL");
    lastVelocity = computed(vec("lastVelocity", "lvl", "LVEL"));
    acceleration = vec("acceleration", "acc", "ACCL");
    rampAcceleration = vec("rampAcceleration", "rac", "RACC");
    force = computed(vec("force", "frc", "FORC"));
    inputForce = multi(computed(vec("inputForce", "ifc", "IFRC")));
    worldCentroid = vec3("worldCentroid", "wctd", "WCTD");
    lastWorldPosition = computed(vec("lastWorldPosition", "lwps", "LWPS"));
    worldVelocity = computed(vec("worldVelocity", "wvl", "WVEL"));
    worldVelocityInObjectSpace = computed(vec("worldVelocityInObjectSpace", "wvo", "WVOS"));
    lastWorldVelocity = computed(vec("lastWorldVelocity", "lwvl", "LWVL"));
    lastWorldMatrix = computed(mat("lastWorldMatrix", "lwm", "LWMT"));
    position0 = vec("position0", "ps0", "POS0");
    velocity0 = vec("velocity0", "vl0", "VEL0");
    acceleration0 = vec("acceleration0", "ac0", "ACC0");
    emitterId0 = dbl("emitterId0", "eid0", "EID0");
    useStartupCache = b("useStartupCache", "usc", "USCC");
    startupCachePath = str("startupCachePath", "scp", "SCPA");
    startupCacheFrame = i32("startupCacheFrame", "scf", "SCFR");
    cachedPosition = computed(vec("cachedPosition", "cps", "SCFR")); // tag shared with startupCacheFrame
    lastCachedPosition = computed(vec("lastCachedPosition", "lcps", "LCPS"));
    cachedWorldPosition = computed(vec("cachedWorldPosition", "cwps", "CWPS"));
    cachedWorldCentroid = vec3("cachedWorldCentroid", "cwct", "CWCT");
    cachedVelocity = computed(vec("cachedVelocity", "cvl", "CVEL"));
    cachedWorldVelocity = computed(vec("cachedWorldVelocity", "cwvl", "CWVL"));
    count = computed(i32("count", "cnt", "COUN"));
    computingCount = internal(b("computingCount", "cc", "CCNT"));
    mass = dbl("mass", "mas", "MASS");
    mass0 = dbl("mass0", "ms0", "MAS0");
    massCache = dbl("massCache", "mch", "MASC");
    particleId = dbl("particleId", "id", "PTID");
    idCache = dbl("idCache", "idc", "IDCH");
    particleId0 = dbl("particleId0", "id0", "PID0");
    sortedId = computed(ints("sortedId", "sid", "SRID"));
    idIndex = computed(ints("idIndex", "idi", "IDIX"));
    idMapping = make<TattributeCompound>("idMapping", "idm", makeIffTag("IDMP"));
    sortedId->setParent(idMapping);
    idIndex->setParent(idMapping);
    add(idMapping);
    nextId = i32("nextId", "nid", "NXID");
    nextId0 = i32("nextId0", "nid0", "NID0");
    birthTime = dbl("birthTime", "bt", "BIRT");
    birthTime0 = dbl("birthTime0", "bt0", "BTT0");
    birthTimeCache = dbl("birthTimeCache", "btc", "BTT0"); // tag shared with birthTime0
    age = dbl("age", "ag", "AGES");
    age0 = dbl("age0", "ag0", "AGE0");
    ageCache = dbl("ageCache", "agc", "AGEC");
    emission = internal(attrs("emission", "emi", "EMIS"));
    emitterId = dbl("emitterId", "eid", "EMID");
    dieOnEmissionVolumeExit = b("dieOnEmissionVolumeExit", "dve", "DOVE");
    isFull = computed(b("isFull", "ifl", "ISFL"));
    newParticles = multi(attrs("newParticles", "npt", "NEWP"));
    newParticles->setStorable(false);
    collisionEvents = computed(i32("collisionEvents", "cle", "CLEV"));
    death = computed(i32("death", "dth", "DETH"));
    auto* lm = make<TattributeEnum>("lifespanMode", "lfm", makeIffTag("LFMD"));
    lm->addField("liveForever", 0);
    lm->addField("constant", 1);
    lm->addField("randomRange", 2);
    lm->addField("lifespanPPOnly", 3);
    lifespanMode = num(lm, 0);
    lifespanRandom = d("lifespanRandom", "lfr", "LFRN");
    finalLifespanPP = dbl("finalLifespanPP", "flp", "FLPP");
    generalSeed = i32("generalSeed", "gsd", "GSED");
    randState = make<Tattribute3Int32>("randState", "rst", makeIffTag("RAND"));
    add(randState);
    expressionsAfterDynamics = b("expressionsAfterDynamics", "ead", "EXAD");
    executeCreationExpression = computed(i32("executeCreationExpression", "ece", "EXCE"));
    executeRuntimeExpression = computed(i32("executeRuntimeExpression", "ere", "EXRE"));
    input = d("input", "inp", "INPT");
    this->output = computed(d("output", "out", "OUTP"));
    time = t("time", "tim", "TIME");
    frame = d("frame", "frm", "FRAM");
    internalRuntimeExpression = str("internalRuntimeExpression", "irx", "IREX");
    internalCreationExpression = str("internalCreationExpression", "icx", "ICEX");
    currentParticle = computed(i32("currentParticle", "cpt", "CPRT"));
    diedLastTime = computed(i32("diedLastTime", "dlt", "DLTM"));
    netEmittedLastTime = computed(i32("netEmittedLastTime", "nel", "NELT"));
    startEmittedIndex = computed(i32("startEmittedIndex", "sei", "SEIX"));
    isDynamic = b("isDynamic", "isd", "ISDY", true);
    dynamicsWeight = d("dynamicsWeight", "dw", "DYWT", 1);
    forcesInWorld = b("forcesInWorld", "fiw", "FIWS", true);
    conserve = d("conserve", "con", "CONS", 1);
    emissionInWorld = b("emissionInWorld", "eiw", "EIWS", true);
    maxCount = i32("maxCount", "mxc", "MXCT", -1);
    levelOfDetail = d("levelOfDetail", "lod", "LODE", 1);
    static_cast<TattributeDouble*>(levelOfDetail)->setMinValue(0);
    static_cast<TattributeDouble*>(levelOfDetail)->setMaxValue(1);
    inheritFactor = d("inheritFactor", "inh", "INHF");
    seed = multi(i32("seed", "sd", "SEED"));

    fieldDataPosition = computed(vec("fieldDataPosition", "fdp", "FDPO"));
    fieldDataVelocity = computed(vec("fieldDataVelocity", "fdv", "FDVE"));
    fieldDataMass = computed(dbl("fieldDataMass", "fdm", "FDMA"));
    fieldDataDeltaTime = computed(t("fieldDataDeltaTime", "fdt", "FDDT"));
    fieldData = make<TattributeCompound>("fieldData", "fd", makeIffTag("FDAT"));
    for (Tattribute* c : std::initializer_list<Tattribute*>{fieldDataPosition, fieldDataVelocity,
                                                            fieldDataMass, fieldDataDeltaTime})
        c->setParent(fieldData);
    computed(add(fieldData));
    emitterDataPosition = computed(vec("emitterDataPosition", "edp", "EDPO"));
    emitterDataVelocity = computed(vec("emitterDataVelocity", "edv", "EDVE"));
    emitterDataDeltaTime = computed(t("emitterDataDeltaTime", "edt", "EDDT"));
    emitterData = make<TattributeCompound>("emitterData", "ed", makeIffTag("EDAT"));
    for (Tattribute* c :
         std::initializer_list<Tattribute*>{emitterDataPosition, emitterDataVelocity, emitterDataDeltaTime})
        c->setParent(emitterData);
    computed(add(emitterData));

    forceDynamics = computed(b("forceDynamics", "fdy", "FDYN"));
    currentTime = t("currentTime", "cti", "CTIM");
    currentTimeSave = t("currentTimeSave", "cts", "CTSV");
    evaluationTime = computed(t("evaluationTime", "evt", "EVTM"));
    currentSceneTime = computed(t("currentSceneTime", "cst", "CSTM"));
    lastTimeEvaluated = computed(t("lastTimeEvaluated", "lte", "LTEV"));
    lastSceneTime = computed(t("lastSceneTime", "lst", "LSTM"));
    cachedTime = computed(t("cachedTime", "chti", "CHTM"));
    timeStepSize = computed(t("timeStepSize", "tss", "TSSZ"));
    sceneTimeStepSize = computed(t("sceneTimeStepSize", "sts", "STSZ"));
    startFrame = d("startFrame", "stf", "STFR", 1);
    startTime = t("startTime", "stt", "STTM");
    startTime->setNativeDefaultData(1.0 / 24.0);
    inputGeometry = add(make<TattributeGeneric>("inputGeometry", "igeo", makeIffTag("IGEO")));
    static_cast<TattributeGeneric*>(inputGeometry)->addAccept(TdataGeometry::sClass);
    static_cast<TattributeGeneric*>(inputGeometry)->addAccept(TdataVectorArray::sClass);
    inputGeometryPoints = computed(vec("inputGeometryPoints", "igpt", "IGPT"));
    auto space = [&](const char* n, const char* s, const char* tag, double def) {
        auto* e = make<TattributeEnum>(n, s, makeIffTag(tag));
        e->addField("objectSpace", 0);
        e->addField("worldSpace", 1);
        e->addField("localSpace", 2);
        return num(e, def);
    };
    inputGeometrySpace = space("inputGeometrySpace", "igs", "IGMS", 0);
    enforceCountFromHistory = b("enforceCountFromHistory", "ecfh", "ECFH");
    // Particle positions served as the input geometry with its points moved, to drive a shape.
    targetGeometry = computed(
        add(make<TattributeTyped>("targetGeometry", "tgm", makeIffTag("TGEO"), TdataGeometry::sClass)));
    targetGeometryWorldMatrix = mat("targetGeometryWorldMatrix", "tgwm", "TGWM");
    targetGeometrySpace = space("targetGeometrySpace", "tgs", "tgPS", 2);
    goalSmoothness = d("goalSmoothness", "gsm", "GSMS", 3);
    auto* gg = make<TattributeGeneric>("goalGeometry", "ggeo", makeIffTag("GGEO"));
    gg->addAccept(TdataGeometry::sClass);
    gg->addAccept(TdataVectorArray::sClass);
    gg->addAccept(TdataMatrix::sClass);
    goalGeometry = add(multi(gg));
    goalWeight = multi(d("goalWeight", "gw", "GWGT", 1));
    goalActive = multi(b("goalActive", "ga", "GACT", true));
    cacheData = b("cacheData", "chd", "CHDT");
    cacheWidth = i32("cacheWidth", "chw", "CHWD", 1);
    collisions = computed(i32("collisions", "col", "COLL"));
    traceDepth = i32("traceDepth", "trd", "TRDP", 10);
    auto* cd = make<TattributeGeneric>("collisionData", "cda", makeIffTag("CDAT"));
    cd->addAccept(TdataGeometry::sClass);
    cd->addAccept(TdataSweptGeometry::sClass);
    collisionData = add(multi(cd));
    auto* cg = make<TattributeGeneric>("collisionGeometry", "cge", makeIffTag("CGEO"));
    cg->addAccept(TdataGeometry::sClass);
    cg->addAccept(TdataSweptGeometry::sClass);
    collisionGeometry = add(multi(cg));
    collisionResilience = multi(d("collisionResilience", "crs", "CRES", 1));
    collisionFriction = multi(d("collisionFriction", "cfr", "CFRI"));
    collisionRecords = computed(attrs("collisionRecords", "crc", "CREC"));
    totalEventCount = computed(i32("totalEventCount", "tec", "TEVC"));
    eventTest = computed(i32("eventTest", "evs", "EVTS"));
    lastTotalEventCount = computed(i32("lastTotalEventCount", "ltec", "LTEC"));
    eventSeed = i32("eventSeed", "esd", "ESED");
    eventRandState =
        make<Tattribute3Int32>("eventRandState", "ers", makeIffTag("RAND")); // tag shared with randState
    add(eventRandState);
    eventTarget = multi(msg("eventTarget", "etg", "ETRG"));
    eventName = multi(str("eventName", "evn", "EVNM"));
    eventValid = multi(b("eventValid", "evv", "EVVA"));
    eventCount = multi(i32("eventCount", "ecnt", "EVCT"));
    eventEmit = multi(i32("eventEmit", "eem", "EVEM"));
    eventSplit = multi(i32("eventSplit", "esp", "EVSP"));
    eventDie = multi(b("eventDie", "edi", "EVDI"));
    eventRandom = multi(b("eventRandom", "erd", "EVRN"));
    eventSpread = multi(d("eventSpread", "esr", "EVSR"));
    eventProc = multi(str("eventProc", "epr", "EVPR"));
    instanceData = attrs("instanceData", "idt", "INSD");
    instanceAttributeMapping = add(make<TattributeTyped>("instanceAttributeMapping", "iam",
                                                         makeIffTag("INAM"), TdataStringArray::sClass));
    instancePointData = computed(attrs("instancePointData", "ipd", "INPD"));
    debugDraw = b("debugDraw", "dbd", "DBDR");
    numberOfEvents = i32("numberOfEvents", "nev", "NEVT");
    eventNameCount = i32("eventNameCount", "enc", "EVNC");
    fieldConnections = multi(msg("fieldConnections", "fc", "FCON"));
    collisionConnections = multi(msg("collisionConnections", "ccn", "CCON"));
    connectionsToMe = multi(msg("connectionsToMe", "ctm", "CTME"));
    auxiliariesOwned = multi(msg("auxiliariesOwned", "aow", "AUXO"));
    emitterConnections = multi(msg("emitterConnections", "ecn", "ECON"));
    inheritColor = b("inheritColor", "inc", "INHC");
    shapeNameMsg = msg("shapeNameMsg", "snm", "SNMS");
    doDynamics = b("doDynamics", "dd", "DODY", true);
    doEmission = b("doEmission", "de", "DOEM", true);
    forceEmission = b("forceEmission", "fe", "FOEM");
    doAge = b("doAge", "da", "DOAG", true);
    agesLastDone = t("agesLastDone", "ald", "AGLD");
    timeLastComputed = t("timeLastComputed", "tlc", "TLCO");
    parentMatrixDirty = b("parentMatrixDirty", "pmd", "PMDI");
    newFileFormat = b("newFileFormat", "nff", "NFFM", true);
    depthSort = b("depthSort", "ds", "DSRT");
    auto* rt = make<TattributeEnum>("particleRenderType", "prt", makeIffTag("PRNT"));
    const char* renderTypes[] = {"multiPoint", "multiStreak", "numeric", "points", "spheres",
                                 "sprites",    "streak",      "blobby",  "cloud",  "tube"};
    for (int i = 0; i < 10; ++i)
        rt->addField(renderTypes[i], i);
    particleRenderType = num(rt, 3);
    disableCloudAxis = b("disableCloudAxis", "dca", "DCAX");
    normalizeVelocity = b("normalizeVelocity", "nvl", "NVEL");
    samplerPerParticleData = computed(attrs("samplerPerParticleData", "spd", "SPPD"));

    // The timed reads of currentTime and the compute-only outputs are never saved.
    for (Tattribute* a :
         std::initializer_list<Tattribute*>{count, evaluationTime, currentSceneTime, lastTimeEvaluated,
                                            lastSceneTime, cachedTime, timeStepSize, sceneTimeStepSize})
        a->setComputeModifies(true);
    fOwnCount = list.count() - before;
}

bool TdnVSTdynParticleShape::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTgeometryShape::setupDependencies(m)) return false;
    auto affects = [&](std::initializer_list<const Tattribute*> from, const Tattribute* to) {
        for (const Tattribute* f : from)
            m.attributeAffects(f, to);
    };
    const Tattribute* world[] = {&worldMatrix, &parentMatrix};

    affects({inputForce, dynamicsWeight, acceleration, goalWeight, maxCount, velocity,
             enforceCountFromHistory, goalActive, goalGeometry, forcesInWorld, age, force, input, output,
             currentTime, emissionInWorld, mass, inputGeometry},
            position);
    affects({inputForce, dynamicsWeight, acceleration, goalWeight, goalActive, conserve, goalGeometry,
             forcesInWorld, force, currentTime, emissionInWorld, mass},
            velocity);
    affects({inputForce, dynamicsWeight, goalWeight, goalActive, goalGeometry, force, currentTime, mass},
            acceleration);
    affects({inputForce, goalWeight, goalActive, goalGeometry, currentTime, mass, goalSmoothness}, force);
    affects({enforceCountFromHistory, age, input, output, currentTime, inputGeometry}, count);
    affects({birthTime, count, currentTime}, age);
    affects({birthTime, age, currentTime}, death);
    affects({newParticles, currentTime}, emission);
    affects({collisionData, collisionFriction, collisionResilience, currentTime, collisionGeometry},
            collisions);
    affects({collisions, currentTime}, collisionEvents);
    affects({collisionEvents, currentTime}, eventTest);
    affects({time, internalCreationExpression, expressionsAfterDynamics, input, internalRuntimeExpression,
             currentTime, frame},
            output);
    affects({input, output, currentTime}, executeRuntimeExpression);
    affects({input, output, currentTime}, executeCreationExpression);
    affects({maxCount, currentTime}, isFull);
    affects({lifespanRandom, lifespanMode}, finalLifespanPP);
    affects({lastTimeEvaluated, cachedTime, currentTime}, timeStepSize);
    for (const Tattribute* a : std::initializer_list<const Tattribute*>{
             evaluationTime, sceneTimeStepSize, currentSceneTime, lastSceneTime, lastPosition,
             lastCachedPosition, forceDynamics, collisionRecords, fieldDataPosition, fieldDataVelocity,
             fieldDataMass})
        m.attributeAffects(currentTime, a);
    affects({timeStepSize, cachedTime, currentTime}, fieldDataDeltaTime);
    affects({lastTimeEvaluated, currentTime}, emitterDataPosition);
    affects({lastTimeEvaluated, currentTime}, emitterDataVelocity);
    affects({lastTimeEvaluated, timeStepSize, cachedTime, currentTime}, emitterDataDeltaTime);
    for (const Tattribute* w : world) {
        m.attributeAffects(w, cachedWorldPosition);
        m.attributeAffects(w, cachedWorldVelocity);
        m.attributeAffects(w, worldPosition);
        m.attributeAffects(w, worldVelocity);
        m.attributeAffects(w, samplerPerParticleData);
        m.attributeAffects(w, lastWorldMatrix);
    }
    affects({cachedPosition, currentTime}, cachedWorldPosition);
    affects({cachedVelocity, currentTime}, cachedWorldVelocity);
    for (const Tattribute* target : std::initializer_list<const Tattribute*>{worldPosition, worldVelocity})
        affects({goalWeight, velocity, goalActive, goalGeometry, forcesInWorld, currentTime, emissionInWorld},
                target);
    m.attributeAffects(position, worldPosition);
    affects({goalWeight, targetGeometryWorldMatrix, enforceCountFromHistory, goalActive, goalGeometry,
             currentTime, position, inputGeometry, targetGeometrySpace},
            targetGeometry);
    m.attributeAffects(currentTime, samplerPerParticleData);

    // Derived outputs the dispatch computes; each needs a source of dirt to be computed at all.
    affects({position, velocity, currentTime}, lastWorldPosition);
    affects({position, velocity, currentTime}, lastWorldVelocity);
    affects({position, velocity, currentTime}, worldVelocityInObjectSpace);
    affects({position, currentTime}, centroid);
    affects({position, currentTime}, worldCentroid);
    affects({cachedPosition, currentTime}, cachedWorldCentroid);
    affects({particleId, count, currentTime}, sortedId);
    affects({particleId, count, currentTime}, idIndex);
    affects({currentTime}, inputGeometryPoints);
    affects({inputGeometry}, inputGeometryPoints);
    affects({currentTime}, instancePointData);
    return true;
}
