#include "Commands/Collisions/TdynGeoConnector.h"

#include "Commands/Collisions/TdataSweptGeometry.h"
#include "Commands/Collisions/TdynGeoConnectableView.h"
#include "Commands/Scene/TdynAuxiliary.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Graph/TdnTime.h"

#include <cmath>

TDEFINE_NODE(TdynGeoConnector, TdnVSTdynGeoConnector, TdependNode, "geoConnector", "YGCT")

bool TdynGeoConnector::fsForceRebuild = false;

namespace {
const char* const kOcdNames[] = {"ownerCentroidX", "ownerCentroidY", "ownerCentroidZ"};
const char* const kOcdShort[] = {"ocx", "ocy", "ocz"};
const char* const kOclNames[] = {"ownerCentroidLocalX", "ownerCentroidLocalY", "ownerCentroidLocalZ"};
const char* const kOclShort[] = {"olcx", "ocly", "oclz"};
const char* const kCpcNames[] = {"componentCentroidX", "componentCentroidY", "componentCentroidZ"};
const char* const kCpcShort[] = {"ccx", "ccy", "ccz"};
const char* const kCclNames[] = {"componentCentroidLocalX", "componentCentroidLocalY",
                                 "componentCentroidLocalZ"};
const char* const kCclShort[] = {"cclx", "clcy", "clcz"};

Tattribute* output(Tattribute* a) {
    a->setWritable(false);
    a->setStorable(false);
    return a;
}

// The object-space points a geometry letter offers: a mesh's points, a curve's edit points.
bool localPoints(const Tdata& geo, std::vector<T4dDblVector>& out) {
    if (auto* m = geo.as<TdataMesh>()) {
        out = m->mesh().points;
        return true;
    }
    if (auto* c = geo.as<TdataCurve>()) {
        out = c->curve().numControlPoints() > 0 ? c->curve().editPoints() : std::vector<T4dDblVector>{};
        return true;
    }
    out.clear();
    return false;
}

T4dDblVector mean(const std::vector<T4dDblVector>& p) {
    T4dDblVector sum;
    for (const T4dDblVector& v : p)
        sum += v;
    return p.empty() ? sum : sum / static_cast<double>(p.size());
}

Tdata vectorData(const std::vector<T4dDblVector>& v) {
    Tdata d = makeData<TdataVectorArray>();
    T4dDblVectorArray& a = d.as<TdataVectorArray>()->array();
    a.changeLogicalSizeTo(static_cast<unsigned>(v.size()));
    for (std::size_t i = 0; i < v.size(); ++i)
        a[static_cast<unsigned>(i)] = v[i];
    return d;
}
} // namespace

TdnVSTdynGeoConnector::TdnVSTdynGeoConnector()
    : currentTime("currentTime", "ct", makeIffTag("GCCT")), prevTime("prevTime", "pt", makeIffTag("GCPT")),
      deltaTime("deltaTime", "dlt", makeIffTag("GCDT")), owner("owner", "own", makeIffTag("GCOW")),
      inputGeometryMsg("inputGeometryMsg", "igm", makeIffTag("GCIM")),
      localGeometry("localGeometry", "lge", makeIffTag("GCLG")),
      worldMatrix("worldMatrix", "wm", makeIffTag("GCWM"), TdataMatrix::sClass),
      ownerPositions("ownerPositions", "pos", makeIffTag("GCPO"), TdataVectorArray::sClass),
      preOwnerPositions("preOwnerPositions", "pop", makeIffTag("GCPP"), TdataVectorArray::sClass),
      ownerVelocities("ownerVelocities", "vel", makeIffTag("GCVE"), TdataVectorArray::sClass),
      ownerMasses("ownerMasses", "mas", makeIffTag("GCMA"), TdataDoubleArray::sClass),
      sortedId("sortedId", "sid", makeIffTag("GCSI"), TdataInt32Array::sClass),
      idIndex("idIndex", "idix", makeIffTag("GCII"), TdataInt32Array::sClass),
      idMapping("idMapping", "idm", makeIffTag("GCIM")),
      inputForce("inputForce", "ifc", makeIffTag("GCIF"), TdataVectorArray::sClass),
      ownerCentroid("ownerCentroid", "ocd", makeIffTag("GCOC"), kOcdNames, kOcdShort),
      ownerCentroidLocal("ownerCentroidLocal", "ocl", makeIffTag("GCOL"), kOclNames, kOclShort),
      groupId("groupId", "gri", makeIffTag("GCGI")),
      components("components", "cmp", makeIffTag("GCCM"), TdataInt32Array::sClass),
      componentPositions("componentPositions", "cpp", makeIffTag("GCCP"), TdataVectorArray::sClass),
      preComponentPositions("preComponentPositions", "pcp", makeIffTag("GCPC"), TdataVectorArray::sClass),
      componentVelocities("componentVelocities", "cpv", makeIffTag("GCCV"), TdataVectorArray::sClass),
      componentCentroid("componentCentroid", "cpc", makeIffTag("GCCC"), kCpcNames, kCpcShort),
      componentCentroidLocal("componentCentroidLocal", "ccl", makeIffTag("GCCL"), kCclNames, kCclShort),
      sweptGeometry("sweptGeometry", "swg", makeIffTag("GCSW"), TdataSweptGeometry::sClass),
      localSweptGeometry("localSweptGeometry", "lsg", makeIffTag("GCLS"), TdataSweptGeometry::sClass),
      ratePPIn("ratePPIn", "rpi", makeIffTag("GCRI"), TdataDoubleArray::sClass),
      ratePPOut("ratePPOut", "rpo", makeIffTag("GCRO"), TdataDoubleArray::sClass),
      matrixModified("matrixModified", "mtm", makeIffTag("GCMM")),
      geometryModified("geometryModified", "gmd", makeIffTag("GCGM")),
      tessellationFactor("tessellationFactor", "tf", makeIffTag("GCTF")),
      resilience("resilience", "res", makeIffTag("GCRS")), friction("friction", "fri", makeIffTag("GCFR")) {
    localGeometry.addAccept(TdataMesh::sClass);
    localGeometry.addAccept(TdataCurve::sClass);
    localGeometry.setStorable(false);
    worldMatrix.setNativeDefaultData(makeMatrixData(T4dDblMatrix()));
    worldMatrix.setStorable(false);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &prevTime, &deltaTime, &ownerPositions, &preOwnerPositions, &ownerVelocities, &ownerMasses,
             &sortedId, &idIndex, &idMapping, &ownerCentroid, &ownerCentroidLocal, &componentPositions,
             &preComponentPositions, &componentVelocities, &componentCentroid, &componentCentroidLocal,
             &sweptGeometry, &localSweptGeometry, &ratePPOut})
        output(a);
    for (TattributeNumericCompound* c : std::initializer_list<TattributeNumericCompound*>{
             &ownerCentroid, &ownerCentroidLocal, &componentCentroid, &componentCentroidLocal})
        for (Tattribute* k : c->children())
            output(k);
    sortedId.setParent(&idMapping);
    idIndex.setParent(&idMapping);
    inputForce.setArray(true);
    inputForce.setIndexMatters(true);
    inputForce.setStorable(false);
    matrixModified.setStorable(false);
    geometryModified.setStorable(false);
    tessellationFactor.setNativeDefaultData(200);
    tessellationFactor.setMinValue(1);
    resilience.setNativeDefaultData(1);
    friction.setNativeDefaultData(0);
}

void TdnVSTdynGeoConnector::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&currentTime,
                                                            &prevTime,
                                                            &deltaTime,
                                                            &owner,
                                                            &inputGeometryMsg,
                                                            &localGeometry,
                                                            &worldMatrix,
                                                            &ownerPositions,
                                                            &preOwnerPositions,
                                                            &ownerVelocities,
                                                            &ownerMasses,
                                                            &idMapping,
                                                            &sortedId,
                                                            &idIndex,
                                                            &inputForce,
                                                            &ownerCentroid,
                                                            &ownerCentroidLocal,
                                                            &groupId,
                                                            &components,
                                                            &componentPositions,
                                                            &preComponentPositions,
                                                            &componentVelocities,
                                                            &componentCentroid,
                                                            &componentCentroidLocal,
                                                            &sweptGeometry,
                                                            &localSweptGeometry,
                                                            &ratePPIn,
                                                            &ratePPOut,
                                                            &matrixModified,
                                                            &geometryModified,
                                                            &tessellationFactor,
                                                            &resilience,
                                                            &friction})
        list.addAttribute(a);
}

bool TdnVSTdynGeoConnector::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    std::vector<const Tattribute*> outs = {&prevTime,
                                           &deltaTime,
                                           &ownerPositions,
                                           &preOwnerPositions,
                                           &ownerVelocities,
                                           &ownerMasses,
                                           &sortedId,
                                           &idIndex,
                                           &ownerCentroid,
                                           &ownerCentroidLocal,
                                           &componentPositions,
                                           &preComponentPositions,
                                           &componentVelocities,
                                           &componentCentroid,
                                           &componentCentroidLocal,
                                           &sweptGeometry,
                                           &localSweptGeometry};
    for (const TattributeNumericCompound* c :
         {static_cast<const TattributeNumericCompound*>(&ownerCentroid),
          static_cast<const TattributeNumericCompound*>(&ownerCentroidLocal),
          static_cast<const TattributeNumericCompound*>(&componentCentroid),
          static_cast<const TattributeNumericCompound*>(&componentCentroidLocal)})
        for (const Tattribute* k : c->children())
            outs.push_back(k);
    for (const Tattribute* in :
         std::initializer_list<const Tattribute*>{&currentTime, &localGeometry, &worldMatrix})
        for (const Tattribute* out : outs)
            m.attributeAffects(in, out);
    for (const Tattribute* out : std::initializer_list<const Tattribute*>{
             &componentPositions, &preComponentPositions, &componentVelocities, &componentCentroid,
             &componentCentroidLocal})
        m.attributeAffects(&components, out);
    for (const TattributeNumericCompound* c :
         {static_cast<const TattributeNumericCompound*>(&componentCentroid),
          static_cast<const TattributeNumericCompound*>(&componentCentroidLocal)})
        for (const Tattribute* k : c->children())
            m.attributeAffects(&components, k);
    m.attributeAffects(&ratePPIn, &ratePPOut);
    return true;
}

TdynGeoConnector::TdynGeoConnector() = default;
TdynGeoConnector::~TdynGeoConnector() = default;

bool TdynGeoConnector::canConnect(const TdependNode* object) {
    return TdynGeoConnectableView::isConnectable(object);
}

TdynGeoConnector* TdynGeoConnector::connectorFor(TdagObject* shape, bool create, std::string& why) {
    TdynGeoConnectableView c(shape);
    if (!c.isValid()) {
        why =
            (shape ? shape->name() : std::string("(nothing)")) + " has no mesh or curve geometry to connect";
        return nullptr;
    }
    if (TdynGeoConnector* existing = c.connector()) return existing;
    if (!create) {
        why = c.shape()->name() + " has no geometry connector";
        return nullptr;
    }
    TdependGraph& g = TdependGraph::current();
    auto* node = TdynGeoConnector::cast(g.createNode("geoConnector", "geoConnector1"));
    if (!node) {
        why = "could not make a geometry connector for " + c.shape()->name();
        return nullptr;
    }
    auto* vs = sVsData();
    try {
        g.connect(c.messagePlug(), Tplug(node, &vs->owner), true);
        g.connect(c.geometryOutput(), Tplug(node, &vs->localGeometry), true);
        g.connect(c.worldMatrixOutput(), Tplug(node, &vs->worldMatrix), true);
        if (TdnTime* t = g.timeNode()) g.connect(t->outTimePlug(), Tplug(node, &vs->currentTime), true);
    } catch (const std::exception& e) {
        why = "could not connect " + node->name() + " to " + c.shape()->name() + ": " + e.what();
        g.detachNode(node);
        return nullptr;
    }
    return node;
}

bool TdynGeoConnector::connectOwnerDataTo(TdynAuxiliary* aux, std::string& why) {
    if (!aux) {
        why = "no auxiliary node to connect " + name() + " to";
        return false;
    }
    TdependGraph& g = TdependGraph::current();
    const std::pair<Tplug, Tplug> links[] = {
        {ownerPositionsPlug(), Tplug(aux, aux->attrOwnerPosData())},
        {ownerVelocitiesPlug(), Tplug(aux, aux->attrOwnerVelData())},
        {ownerCentroidPlug(), Tplug(aux, aux->attrOwnerCentroid())},
    };
    for (const auto& [src, dst] : links) {
        if (dst.source() == src) continue;
        const std::string problem = g.connectionProblem(src, dst);
        if (!problem.empty()) {
            why = problem;
            return false;
        }
    }
    for (const auto& [src, dst] : links)
        if (dst.source() != src) g.connect(src, dst, true);
    return true;
}

bool TdynGeoConnector::connectSweptGeometryTo(const Tplug& destination, std::string& why) {
    if (destination.isNull()) {
        why = "no plug to connect " + name() + ".sweptGeometry to";
        return false;
    }
    TdependGraph& g = TdependGraph::current();
    if (destination.source() == sweptGeometryPlug()) return true;
    const std::string problem = g.connectionProblem(sweptGeometryPlug(), destination);
    if (!problem.empty()) {
        why = problem;
        return false;
    }
    try {
        g.connect(sweptGeometryPlug(), destination, true);
    } catch (const std::exception& e) {
        why = e.what();
        return false;
    }
    return true;
}

TdagObject* TdynGeoConnector::ownerShape() const {
    Tplug src = Tplug(const_cast<TdynGeoConnector*>(this), &sVsData()->owner).source();
    return TdagObject::cast(src.node());
}

TdynSweptGeometry* TdynGeoConnector::currentSweptGeometry() {
    Tdata d;
    getAttributeValue(&sVsData()->sweptGeometry, d);
    return sweptGeometryOf(d); // the block keeps the letter alive
}

bool TdynGeoConnector::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    const Tattribute* a = plug.attribute();
    const Tattribute* parent = a ? a->parent() : nullptr;
    if (a == &vs->ownerPositions || a == &vs->preOwnerPositions || a == &vs->ownerVelocities ||
        a == &vs->prevTime || a == &vs->deltaTime || a == &vs->ownerMasses || a == &vs->sortedId ||
        a == &vs->idIndex || a == &vs->idMapping)
        return computeOwnerArrays(block);
    if (a == &vs->componentPositions || a == &vs->preComponentPositions || a == &vs->componentVelocities ||
        a == &vs->componentCentroid || parent == &vs->componentCentroid || a == &vs->componentCentroidLocal ||
        parent == &vs->componentCentroidLocal)
        return computeComponentArrays(block);
    if (a == &vs->ownerCentroid || parent == &vs->ownerCentroid || a == &vs->ownerCentroidLocal ||
        parent == &vs->ownerCentroidLocal)
        return computeOwnerCentroid(block);
    if (a == &vs->sweptGeometry) return computeSweptGeometry(block, true);
    if (a == &vs->localSweptGeometry) return computeSweptGeometry(block, false);
    if (a == &vs->ratePPOut) {
        block.outputValue(&vs->ratePPOut).set(block.inputValue(&vs->ratePPIn).data());
        return true;
    }
    return TdependNode::computePlug(plug, block);
}

namespace {
// Positions of this evaluation against the last one: velocities over the time between them. A first
// evaluation, another point count, or time standing still or going back gives no motion.
struct Motion {
    std::vector<T4dDblVector> pre, vel;
    TanimTime prevTime;
    double dt = 0;
};
} // namespace

static Motion difference(const std::vector<T4dDblVector>& pos, TanimTime now, bool normal, bool& valid,
                         TanimTime& lastTime, T4dDblVectorArray& lastPositions) {
    Motion m;
    m.prevTime = now;
    m.pre = pos;
    m.vel.assign(pos.size(), T4dDblVector{});
    if (normal && valid) {
        m.prevTime = lastTime;
        m.dt = (now - lastTime).seconds();
        if (m.dt > 1e-10 && lastPositions.length() == pos.size()) {
            for (std::size_t i = 0; i < pos.size(); ++i) {
                m.pre[i] = lastPositions[static_cast<unsigned>(i)];
                m.vel[i] = (pos[i] - m.pre[i]) / m.dt;
            }
        }
    }
    if (normal) {
        valid = true;
        lastTime = now;
        lastPositions.changeLogicalSizeTo(static_cast<unsigned>(pos.size()));
        for (std::size_t i = 0; i < pos.size(); ++i)
            lastPositions[static_cast<unsigned>(i)] = pos[i];
    }
    return m;
}

bool TdynGeoConnector::computeOwnerArrays(TdataBlock& block) {
    auto* vs = sVsData();
    const Tdata geo = block.inputValue(&vs->localGeometry).data();
    const T4dDblMatrix w = block.inputValue(&vs->worldMatrix).asMatrix();
    const TanimTime now = block.inputValue(&vs->currentTime).asTime();
    std::vector<T4dDblVector> pos;
    localPoints(geo, pos);
    w.transformPoints(pos.data(), pos.data(), pos.size());

    History& h = fOwnerHistory;
    Motion m = difference(pos, now, block.isNormalContext(), h.valid, h.time, h.positions);

    block.outputValue(&vs->ownerPositions).set(vectorData(pos));
    block.outputValue(&vs->preOwnerPositions).set(vectorData(m.pre));
    block.outputValue(&vs->ownerVelocities).set(vectorData(m.vel));
    TdataHandle pt = block.outputValue(&vs->prevTime);
    pt.set(m.prevTime);
    pt.setClean();
    TdataHandle dh = block.outputValue(&vs->deltaTime);
    dh.set(m.dt > 1e-10 ? m.dt : 0.0);
    dh.setClean();

    const unsigned n = static_cast<unsigned>(pos.size());
    Tdata masses = makeData<TdataDoubleArray>();
    Tdata ids = makeData<TdataInt32Array>();
    Tdata index = makeData<TdataInt32Array>();
    masses.as<TdataDoubleArray>()->array().changeLogicalSizeTo(n);
    ids.as<TdataInt32Array>()->array().changeLogicalSizeTo(n);
    index.as<TdataInt32Array>()->array().changeLogicalSizeTo(n);
    // A geometry's ids are its point indices, already sorted.
    for (unsigned i = 0; i < n; ++i) {
        masses.as<TdataDoubleArray>()->array()[i] = 1.0;
        ids.as<TdataInt32Array>()->array()[i] = static_cast<std::int32_t>(i);
        index.as<TdataInt32Array>()->array()[i] = static_cast<std::int32_t>(i);
    }
    block.outputValue(&vs->ownerMasses).set(masses);
    block.outputValue(&vs->sortedId).set(ids);
    block.outputValue(&vs->idIndex).set(index);
    block.setClean(&vs->idMapping);
    return true;
}

bool TdynGeoConnector::computeComponentArrays(TdataBlock& block) {
    auto* vs = sVsData();
    const Tdata geo = block.inputValue(&vs->localGeometry).data();
    const T4dDblMatrix w = block.inputValue(&vs->worldMatrix).asMatrix();
    const TanimTime now = block.inputValue(&vs->currentTime).asTime();
    const Tdata list = block.inputValue(&vs->components).data();
    std::vector<T4dDblVector> all, local;
    localPoints(geo, all);
    if (auto* l = list.as<TdataInt32Array>(); l && l->length() > 0) {
        // Indices outside the geometry are passed over rather than read.
        for (unsigned i = 0; i < l->length(); ++i) {
            const std::int32_t k = l->array()[i];
            if (k >= 0 && static_cast<std::size_t>(k) < all.size()) local.push_back(all[k]);
        }
    } else {
        local = all;
    }
    std::vector<T4dDblVector> pos(local.size());
    w.transformPoints(local.data(), pos.data(), local.size());

    History& h = fComponentHistory;
    Motion m = difference(pos, now, block.isNormalContext(), h.valid, h.time, h.positions);
    block.outputValue(&vs->componentPositions).set(vectorData(pos));
    block.outputValue(&vs->preComponentPositions).set(vectorData(m.pre));
    block.outputValue(&vs->componentVelocities).set(vectorData(m.vel));
    TdataHandle c = block.outputValue(&vs->componentCentroid);
    c.set(mean(pos));
    c.setClean();
    TdataHandle cl = block.outputValue(&vs->componentCentroidLocal);
    cl.set(mean(local));
    cl.setClean();
    return true;
}

bool TdynGeoConnector::computeOwnerCentroid(TdataBlock& block) {
    auto* vs = sVsData();
    const Tdata geo = block.inputValue(&vs->localGeometry).data();
    const T4dDblMatrix w = block.inputValue(&vs->worldMatrix).asMatrix();
    block.inputValue(&vs->currentTime);
    std::vector<T4dDblVector> local;
    localPoints(geo, local);
    const T4dDblVector c = mean(local);
    TdataHandle wc = block.outputValue(&vs->ownerCentroid);
    // The mean commutes with an affine matrix.
    wc.set(local.empty() ? T4dDblVector{} : w.transformPoint(c));
    wc.setClean();
    TdataHandle lc = block.outputValue(&vs->ownerCentroidLocal);
    lc.set(c);
    lc.setClean();
    return true;
}

bool TdynGeoConnector::computeSweptGeometry(TdataBlock& block, bool world) {
    auto* vs = sVsData();
    const Tdata geo = block.inputValue(&vs->localGeometry).data();
    const T4dDblMatrix m = world ? block.inputValue(&vs->worldMatrix).asMatrix() : T4dDblMatrix();
    block.inputValue(&vs->currentTime);
    const Tattribute* outAttr = world ? &vs->sweptGeometry : &vs->localSweptGeometry;
    TdataHandle out = block.outputValue(outAttr);
    Tshape* shape = Tshape::cast(ownerShape());

    if (!block.isNormalContext()) {
        // A timed read never advances the step: a geometry of its own, standing still.
        Tdata d = makeData<TdataSweptGeometry>();
        TdynSweptGeometry* g = sweptGeometryOf(d);
        g->shape = shape;
        g->create(geo, m);
        out.set(d);
        return true;
    }

    Tdata env = out.data();
    TdynSweptGeometry* g = sweptGeometryOf(env);
    SweptSource& src = world ? fWorldSource : fLocalSource;
    const bool geometryChanged = !src.valid || geo.letter() != src.letter.letter();
    const bool matrixChanged = !src.valid || m != src.matrix;
    bool newBuild = !g || !src.valid || (geometryChanged && g->hasChanged(geo));
    if (fsForceRebuild) {
        newBuild = true;
        fsForceRebuild = false;
    }
    src.letter = geo;
    src.matrix = m;
    src.valid = true;
    if (world) {
        TdataHandle mm = block.outputValue(&vs->matrixModified);
        mm.set(matrixChanged);
        mm.setClean();
        TdataHandle gm = block.outputValue(&vs->geometryModified);
        gm.set(geometryChanged);
        gm.setClean();
    }

    if (!newBuild && !geometryChanged && !matrixChanged) {
        // Still: only the copy of the end state; collisions take the still path.
        const bool wasMoving = g->moving;
        g->shape = shape;
        g->saveLastState();
        g->markMoving(false);
        if (wasMoving) g->refreshBoundingBox();
        out.set(env);
        return true;
    }
    if (newBuild) {
        if (!g) {
            env = makeData<TdataSweptGeometry>();
            g = sweptGeometryOf(env);
        } else {
            g->clear();
        }
        g->shape = shape;
        g->create(geo, m);
        // The first step of a new build shows no motion.
        g->saveLastState();
        g->markMoving(false);
        g->refreshBoundingBox();
        out.set(env);
        return true;
    }
    g->shape = shape;
    g->saveLastState();
    g->rebuild(geo, m);
    g->markMoving(true);
    g->refreshBoundingBox();
    out.set(env);
    return true;
}
