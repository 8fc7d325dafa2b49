#include "Commands/Collisions/TdynCollision.h"

#include "Commands/Collisions/TdynGeoConnector.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynStatic.h"

#include <algorithm>

TDEFINE_NODE(TdynCollision, TdnVSTdynCollision, TdynAuxiliary, "collisionModel", "YCOL")

TdnVSTdynCollision::TdnVSTdynCollision()
    : resilience("resilience", "res", makeIffTag("RSIL")), friction("friction", "fri", makeIffTag("FRIC")) {
    resilience.setNativeDefaultData(1.0);
    friction.setNativeDefaultData(0.0);
}

void TdnVSTdynCollision::appendAttributes(TattributeList& list) {
    TdnVSTdynAuxiliary::appendAttributes(list);
    list.addAttribute(&resilience);
    list.addAttribute(&friction);
}

double TdynCollision::resilience() {
    return normalBlock().inputValue(&sVsData()->resilience).asDouble();
}
double TdynCollision::friction() {
    return normalBlock().inputValue(&sVsData()->friction).asDouble();
}
void TdynCollision::setResilience(double value) {
    setAttributeValue(&sVsData()->resilience, value);
}
void TdynCollision::setFriction(double value) {
    setAttributeValue(&sVsData()->friction, value);
}

TdagObject* TdynCollision::geometry() const {
    return TdagObject::cast(ownerObject());
}

TdynGeoConnector* TdynCollision::connector() const {
    TdagObject* g = geometry();
    std::string why;
    return g ? TdynGeoConnector::connectorFor(g, false, why) : nullptr;
}

namespace {
TdagObject* shapeOf(TdagObject* object) {
    if (!object) return nullptr;
    if (Tshape::cast(object)) return object;
    return TdynStatic::getShape(object);
}
} // namespace

TdynCollision* TdynCollision::collisionOf(TdagObject* object) {
    TdagObject* shape = shapeOf(object);
    if (!shape) return nullptr;
    for (const Tplug& d : Tplug(shape, &shape->vsData()->message).destinations())
        if (auto* c = TdynCollision::cast(d.node()); c && d.attribute() == &c->auxVs()->owner) return c;
    return nullptr;
}

TdynCollision* TdynCollision::makeCollision(TdagObject* object, std::string& why) {
    TdagObject* shape = shapeOf(object);
    const std::string name = object ? object->name() : std::string("(nothing)");
    if (!shape || !TdynGeoConnector::canConnect(shape) || TdynParticleShape::cast(shape)) {
        why = "'" + name + "' has no geometry to collide with";
        return nullptr;
    }
    if (TdynCollision* c = collisionOf(shape)) return c;
    TdynGeoConnector* connector = TdynGeoConnector::connectorFor(shape, true, why);
    if (!connector) return nullptr;
    TdependGraph& g = TdependGraph::current();
    auto* c = TdynCollision::cast(g.createNode("collisionModel", "collision1"));
    if (!c) {
        why = "could not make a collision node for '" + name + "'";
        return nullptr;
    }
    if (!c->setOwner(shape, why)) return nullptr;
    // The connector carries the values too, for whoever reads the geometry through it.
    g.connect(Tplug(c, &sVsData()->resilience), connector->resiliencePlug(), true);
    g.connect(Tplug(c, &sVsData()->friction), connector->frictionPlug(), true);
    return c;
}

std::vector<TdynCollision::Member> TdynCollision::collisionsOf(TdynParticleShape* p) {
    std::vector<Member> out;
    if (!p) return out;
    const int attr = TdynParticleShape::sVsData()->collisionConnections->index();
    // The map is ordered by attribute, then element.
    for (const auto& [key, src] : p->inputConnections())
        if (key.attr == attr)
            if (auto* c = TdynCollision::cast(src.node())) out.push_back({c, key.index});
    return out;
}

int TdynCollision::connectToObject(TdagObject* object, TdynParticleShape* p, std::string& why) {
    if (!p) {
        why = "no particle object to connect to";
        return -1;
    }
    TdynCollision* c = collisionOf(object);
    if (!c) {
        why = "'" + (object ? object->name() : std::string("(nothing)")) +
              "' is not a collision object (make one with the collision command)";
        return -1;
    }
    auto* vs = TdynParticleShape::sVsData();
    int free = 0;
    for (const Member& m : collisionsOf(p)) {
        if (m.collision == c) return m.element;
        free = std::max(free, m.element + 1);
    }
    TdynGeoConnector* connector = c->connector();
    if (!connector) {
        why = "'" + object->name() + "' has lost its geometry connector";
        return -1;
    }
    TdependGraph& g = TdependGraph::current();
    g.connect(Tplug(c, &c->vsData()->message), Tplug(p, vs->collisionConnections, free), true);
    if (!connector->connectSweptGeometryTo(Tplug(p, vs->collisionGeometry, free), why)) {
        g.disconnect(Tplug(c, &c->vsData()->message), Tplug(p, vs->collisionConnections, free));
        return -1;
    }
    g.connect(Tplug(c, &sVsData()->resilience), Tplug(p, vs->collisionResilience, free), true);
    g.connect(Tplug(c, &sVsData()->friction), Tplug(p, vs->collisionFriction, free), true);
    return free;
}

bool TdynCollision::disconnectFromObject(TdagObject* object, TdynParticleShape* p) {
    TdynCollision* c = collisionOf(object);
    if (!c || !p) return false;
    auto* vs = TdynParticleShape::sVsData();
    TdependGraph& g = TdependGraph::current();
    for (const Member& m : collisionsOf(p)) {
        if (m.collision != c) continue;
        for (Tattribute* a : {vs->collisionConnections, vs->collisionGeometry, vs->collisionResilience,
                              vs->collisionFriction}) {
            const Tplug dst(p, a, m.element);
            if (const Tplug src = dst.source(); !src.isNull()) g.disconnect(src, dst);
        }
        return true;
    }
    return false;
}
