#pragma once
// A collision object: the auxiliary node that gives a piece of geometry its
// resilience and friction. Its owner is the geometry; the geometry's connector
// turns the shape into swept geometry, and a particle object that collides with
// it reads that geometry and these two values at one element of its collision
// arrays.

#include "Commands/Scene/TdynAuxiliary.h"

#include <string>
#include <vector>

class TdynGeoConnector;
class TdynParticleShape;

class TdnVSTdynCollision : public TdnVSTdynAuxiliary {
public:
    TdnVSTdynCollision();
    void appendAttributes(TattributeList& list) override;
    TattributeDouble resilience;
    TattributeDouble friction;
};

class TdynCollision : public TdynAuxiliary {
    TDECLARE_NODE(TdynCollision, TdnVSTdynCollision)
public:
    static TdnVSTdynCollision* saVs() { return sVsData(); }
    const char* baseObjectName() const override { return "collision#"; }
    double resilience();
    double friction();
    void setResilience(double value);
    void setFriction(double value);

    // The geometry this node belongs to (its owner), and that geometry's connector.
    TdagObject* geometry() const;
    TdynGeoConnector* connector() const;

    // The collision node of a geometry (a transform stands for its shape), or null.
    static TdynCollision* collisionOf(TdagObject* geometry);
    // Makes the collision node and the connector of a mesh or curve; an existing one is returned as it
    // is. Null, with `why` set, for an object without geometry.
    static TdynCollision* makeCollision(TdagObject* geometry, std::string& why);

    // The collision set of a particle object: its collision nodes in element order, with the element
    // each one feeds.
    struct Member {
        TdynCollision* collision;
        int element;
    };
    static std::vector<Member> collisionsOf(TdynParticleShape* particles);
    // Joins a geometry's collision to a particle object: the swept geometry, resilience and friction
    // into one element of its collision arrays, and this node's message into collisionConnections.
    // Returns the element (the existing one when already joined), or -1 with `why` set.
    static int connectToObject(TdagObject* geometry, TdynParticleShape* particles, std::string& why);
    // Undoes connectToObject; false when they were not joined.
    static bool disconnectFromObject(TdagObject* geometry, TdynParticleShape* particles);
};
