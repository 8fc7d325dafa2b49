// Collisions: the step's motion of each particle traced against the swept
// geometry on collisionGeometry, the response written back to the state, and
// one record per hit for events.

#include "Commands/Collisions/TdataSweptGeometry.h"
#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Commands/Particles/TdynParticleShape.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

void TdynParticleShape::TsweptPointSetDeleter::operator()(TdynSweptPointSet* set) const {
    delete set;
}

namespace {
// A hit leaves the surface at its own instant; the next pass starts just after it.
constexpr double kRestart = 1e-07;

double secondsOf(TdataBlock& block, const Tattribute* a) {
    return block.outputValue(a).asTime().seconds();
}

// Elements of a multi that hold data or a connection, ascending.
std::vector<int> usedElements(TdependNode& node, TdataBlock& block, const Tattribute* attr) {
    std::vector<int> out = block.elementIndices(attr);
    for (const auto& [key, src] : node.inputConnections())
        if (key.attr == attr->index() && key.index >= 0) out.push_back(key.index);
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

double elementValue(TdependNode& node, TdataBlock& block, const Tattribute* attr, int e, double fallback) {
    if (!node.inputSource(attr, e).isNull() || block.hasElement(attr, e))
        return block.inputValue(attr, e).asDouble();
    return fallback;
}
} // namespace

void TdynParticleShape::clearCollisionUVAttributes(TdataBlock& block) {
    const unsigned n = countNoCompute();
    for (const char* name : {"collisionU", "collisionV"}) {
        Tattribute* a = attribute(name);
        if (!a) continue;
        Tdata d = std::move(block.outputValue(a).data());
        if (!d.as<TdataDoubleArray>()) d = makeData<TdataDoubleArray>();
        d.makeWriter();
        TdoubleArray& arr = d.as<TdataDoubleArray>()->array();
        arr.changeLogicalSizeTo(n);
        arr.fill(-1.0);
        d.makeHolder();
        block.outputValue(a).set(d);
    }
}

void TdynParticleShape::processCollisions(TdataBlock& block) {
    auto* vs = sVsData();
    // Only the step traces: the response changes the state.
    if (!block.isNormalContext() || !block.outputValue(vs->computingCount).asBool()) return;
    Tdata recordData = std::move(block.outputValue(vs->collisionRecords).data());
    if (!recordData.as<TdataArrayAttrs>()) recordData = makeData<TdataArrayAttrs>();
    recordData.makeWriter();
    TdataArrayAttrs& records = *recordData.as<TdataArrayAttrs>();
    clearCollisionRecords(records);
    struct Store {
        TdataBlock& block;
        const Tattribute* attr;
        Tdata& data;
        ~Store() {
            data.makeHolder();
            block.outputValue(attr).set(data);
        }
    } store{block, vs->collisionRecords, recordData};
    clearCollisionUVAttributes(block);

    // A step of no length has nothing to trace.
    if (secondsOf(block, vs->timeStepSize) <= 0 || secondsOf(block, vs->sceneTimeStepSize) <= 0) return;
    const std::vector<int> elements = usedElements(*this, block, vs->collisionGeometry);
    if (elements.empty() || countNoCompute() == 0) return;

    updateSweptPointSetFromState(block);
    const TdynBoundingBox pointsBox = fSweptPoints->boundingBox();
    // Geometry the set's box misses costs nothing further this step.
    std::vector<int> accepted;
    for (int e : elements) {
        Tdata d = block.inputValue(vs->collisionGeometry, e).data();
        const auto* letter = d.as<TdataSweptGeometry>();
        if (!letter || letter->timeSampleCount() != 2) continue;
        const TdynSweptGeometry* g = letter->sweptGeometry();
        if (!g || g->kind != TdynSweptGeometry::kTriangles || !g->boundingBox().intersects(pointsBox))
            continue;
        accepted.push_back(e);
    }
    if (accepted.empty()) return;
    collideWithSweptGeometry(block, accepted, records);
}

void TdynParticleShape::updateSweptPointSetFromState(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata last = block.inputValue(vs->lastWorldPosition).data();
    Tdata now = block.inputValue(vs->worldPosition).data();
    Tdata vel = block.inputValue(vs->worldVelocity).data();
    const T4dDblVectorArray* p0 = TdynStatic::dataVectorArray(last);
    const T4dDblVectorArray* p1 = TdynStatic::dataVectorArray(now);
    const T4dDblVectorArray* v = TdynStatic::dataVectorArray(vel);
    const unsigned n = p1 ? p1->length() : 0;
    if (!fSweptPoints) fSweptPoints.reset(new TdynSweptPointSet);
    fSweptPoints->setCount(n);
    // A particle born in this step was not there before its birth: its sweep starts where it was
    // born, or its own birth would carry it through a surface.
    const Tdata idData = block.outputValue(vs->particleId).data();
    const TdoubleArray* ids = fBirthPoints.empty() ? nullptr : TdynStatic::dataDoubleArray(idData);
    for (unsigned i = 0; i < n; ++i) {
        const T4dDblVector end = (*p1)[i];
        T4dDblVector start = p0 && i < p0->length() ? (*p0)[i] : end;
        bool newborn = false;
        if (ids && i < ids->length()) {
            const double k = (*ids)[i] - fBirthFirstId;
            newborn = k >= 0 && k < static_cast<double>(fBirthPoints.size());
            if (newborn) start = fBirthPoints[static_cast<std::size_t>(k)];
        }
        const T4dDblVector velocity = v && i < v->length() ? (*v)[i] : T4dDblVector();
        fSweptPoints->point(i).set(start, end, velocity);
        fSweptPoints->point(i).setBornAtStart(newborn);
    }
}

void TdynParticleShape::collideWithSweptGeometry(TdataBlock& block, const std::vector<int>& elements,
                                                 TdataArrayAttrs& records) {
    auto* vs = sVsData();
    std::vector<TdynSweptGeometry*> geometries;
    TdoubleArray resilience, friction;
    for (int e : elements) {
        Tdata d = block.inputValue(vs->collisionGeometry, e).data();
        geometries.push_back(sweptGeometryOf(d));
        resilience.addLast(elementValue(*this, block, vs->collisionResilience, e, 1.0));
        friction.addLast(elementValue(*this, block, vs->collisionFriction, e, 0.0));
    }
    Tdata massData = block.outputValue(vs->mass).data();
    const TdoubleArray* m = TdynStatic::dataDoubleArray(massData);
    const unsigned n = fSweptPoints ? fSweptPoints->count() : 0;
    // The masses are read in place; only a short array is copied, to give the missing ones mass 1.
    TdoubleArray padded;
    const TdoubleArray* mass = m;
    if (!m || m->length() < n) {
        padded = m ? *m : TdoubleArray();
        const unsigned old = padded.length();
        padded.changeLogicalSizeTo(n);
        for (unsigned i = old; i < n; ++i)
            padded[i] = 1.0;
        mass = &padded;
    }
    collideWithSweptGeometry(block, geometries, resilience, friction, elements, *mass, records);
}

void TdynParticleShape::collideWithSweptGeometry(TdataBlock& block,
                                                 const std::vector<TdynSweptGeometry*>& geometries,
                                                 const TdoubleArray& resilience, const TdoubleArray& friction,
                                                 const std::vector<int>& elementIndices,
                                                 const TdoubleArray& mass, TdataArrayAttrs& records) {
    (void)elementIndices;
    auto* vs = sVsData();
    if (geometries.empty()) {
        clearCollisionRecords(records);
        return;
    }
    const double dt = secondsOf(block, vs->sceneTimeStepSize);
    if (dt <= 0 || !fSweptPoints) return;
    const double sceneTime = secondsOf(block, vs->currentSceneTime);
    const T4dDblMatrix W = worldMatrix();
    const T4dDblMatrix L = block.inputValue(vs->lastWorldMatrix).asMatrix();
    // Only a frame that moved during the step takes its own motion out of the response.
    const bool frameMoved = !W.isEquivalent(L, 0.0);

    const unsigned n = fSweptPoints->count();
    const int depth = block.inputValue(vs->traceDepth).asInt();
    Tdata depthData;
    const TdoubleArray* depthPP = nullptr;
    if (Tattribute* a = attribute("traceDepthPP")) {
        depthData = block.inputValue(a).data();
        depthPP = TdynStatic::dataDoubleArray(depthData);
    }

    // Surface parameters of each particle's first hit, -1 without one.
    Tattribute* uAttr = attribute("collisionU");
    Tattribute* vAttr = attribute("collisionV");
    Tdata uData, vData;
    TdoubleArray* U = nullptr;
    TdoubleArray* V = nullptr;
    auto writable = [&](Tattribute* a, Tdata& d) -> TdoubleArray* {
        if (!a) return nullptr;
        d = std::move(block.outputValue(a).data());
        if (!d.as<TdataDoubleArray>()) d = makeData<TdataDoubleArray>();
        d.makeWriter();
        TdoubleArray& arr = d.as<TdataDoubleArray>()->array();
        const unsigned old = arr.length();
        arr.changeLogicalSizeTo(n);
        for (unsigned i = old; i < n; ++i)
            arr[i] = -1.0;
        return &arr;
    };
    U = writable(uAttr, uData);
    V = writable(vAttr, vData);

    TvoidPtrArray& rShape = *records.getVoidPtrData("shapePointer");
    TstringArray& rName = *records.getStringData("shapeName");
    T4dDblVectorArray& rPosition = *records.getVectorData("position");
    T4dDblVectorArray& rForce = *records.getVectorData("force");
    T4dDblVectorArray& rVelocity = *records.getVectorData("velocity");
    Tint32Array& rIndex = *records.getInt32Data("index");
    TdoubleArray& rTime = *records.getDoubleData("time");
    T4dDblVectorArray& rNormal = *records.getVectorData("normal");
    TdoubleArray& rU = *records.getDoubleData("contactU");
    TdoubleArray& rV = *records.getDoubleData("contactV");

    const std::size_t ng = geometries.size();
    fPointHit.assign(n, 0);
    bool anyHit = false;
    for (unsigned i = 0; i < n; ++i) {
        TdynSweptPoint& point = fSweptPoints->point(i);
        const int D = depthPP && i < depthPP->length() ? static_cast<int>((*depthPP)[i]) : depth;
        double from = 0.0;
        int hits = 0;
        bool hitLast = true;
        while (hits < D && hitLast) {
            point.clearHit();
            hitLast = false;
            // Every geometry competes; the point keeps the earliest hit.
            for (std::size_t g = 0; g < ng; ++g) {
                TdynSweptGeometry* geo = geometries[g];
                if (geo &&
                    geo->intersectsWithPoint(point, dt, from + kRestart, resilience[static_cast<unsigned>(g)],
                                             friction[static_cast<unsigned>(g)], geo->shape))
                    hitLast = true;
            }
            hitLast = hitLast && point.hasHit();
            if (hitLast) {
                from = point.hitFraction();
                const T4dDblVector before = point.velocity();
                point.respond(dt, frameMoved ? &L : nullptr, frameMoved ? &W : nullptr);
                // The response keeps the hits it bounced off.
                const std::vector<TdynSweptHit>& found = point.hits();
                const T4dDblVector after = point.velocity();
                const T4dDblVector force = (before - after) / dt * mass[i];
                const double time = sceneTime - (1.0 - from) * dt;
                // Simultaneous hits on several shapes give a row each.
                for (const TdynSweptHit& h : found) {
                    rShape.addLast(h.shape);
                    rName.addLast(h.shape ? h.shape->name() : Tstring());
                    rPosition.addLast(h.position);
                    rForce.addLast(force);
                    rVelocity.addLast(after);
                    rIndex.addLast(static_cast<std::int32_t>(i));
                    rTime.addLast(time);
                    rNormal.addLast(h.normal);
                    rU.addLast(h.u);
                    rV.addLast(h.v);
                }
                fPointHit[i] = 1;
                anyHit = true;
            }
            if (hits == 0) {
                if (U) (*U)[i] = hitLast ? point.hits().front().u : -1.0;
                if (V) (*V)[i] = hitLast ? point.hits().front().v : -1.0;
            }
            hits += hitLast ? static_cast<int>(std::max<std::size_t>(1, point.hits().size())) : 0;
        }
    }
    if (U) {
        uData.makeHolder();
        block.outputValue(uAttr).set(uData);
    }
    if (V) {
        vData.makeHolder();
        block.outputValue(vAttr).set(vData);
    }
    if (anyHit) updateStateFromSweptPointSet(block);
}

void TdynParticleShape::updateStateFromSweptPointSet(TdataBlock& block) {
    auto* vs = sVsData();
    if (!fSweptPoints) return;
    const unsigned n = fSweptPoints->count();
    // The cached generation still holds the letters from before the response: these copy once.
    Tdata pos = std::move(block.outputValue(vs->position).data());
    Tdata vel = std::move(block.outputValue(vs->velocity).data());
    if (!pos.as<TdataVectorArray>()) pos = makeData<TdataVectorArray>();
    if (!vel.as<TdataVectorArray>()) vel = makeData<TdataVectorArray>();
    pos.makeWriter();
    vel.makeWriter();
    T4dDblVectorArray& P = pos.as<TdataVectorArray>()->array();
    T4dDblVectorArray& Vv = vel.as<TdataVectorArray>()->array();
    P.changeLogicalSizeTo(n);
    Vv.changeLogicalSizeTo(n);

    const T4dDblMatrix W = worldMatrix();
    const bool toObject = !W.isIdentity(0.0);
    const T4dDblMatrix I = W.inverse();
    const T4dDblMatrix R = TdynStatic::matrixWithoutTranslation(W).inverse();
    const double dt = secondsOf(block, vs->sceneTimeStepSize);
    const double h = secondsOf(block, vs->timeStepSize);
    // Velocities per scene step back to velocities per simulation step.
    const double scale = dt > 0 && h > 0 ? dt / h : 1.0;
    for (unsigned i = 0; i < n && i < fPointHit.size(); ++i) {
        if (!fPointHit[i]) continue;
        const TdynSweptPoint& point = fSweptPoints->point(i);
        T4dDblVector p = point.position1();
        T4dDblVector v = point.velocity();
        if (toObject) {
            p = I.transformPoint(p);
            v = R.transformVector(v);
        }
        P[i] = p;
        Vv[i] = v * scale;
    }
    pos.makeHolder();
    vel.makeHolder();
    block.outputValue(vs->position).set(pos);
    block.outputValue(vs->velocity).set(vel);
    // The world arrays read before the response are stale now.
    for (const Tattribute* a : std::initializer_list<const Tattribute*>{
             vs->worldPosition, vs->worldVelocity, vs->lastWorldPosition, vs->lastWorldVelocity,
             vs->lastPosition, vs->worldVelocityInObjectSpace})
        block.markDirty(a);
}
