#pragma once
// The node between a piece of scene geometry (a mesh or a curve) and the
// dynamics: it gives the shape's points, velocities and centroid, and its
// swept geometry for collisions and emission, as attributes.

#include "Host/Dag/Tshape.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Graph/TdependNode.h"

#include <string>

class TdynAuxiliary;
class TdynSweptGeometry;

class TdnVSTdynGeoConnector : public TdependNodeVS {
public:
    TdnVSTdynGeoConnector();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;

    TattributeTime currentTime;
    TattributeTime prevTime;    // output: time of the evaluation before this one
    TattributeDouble deltaTime; // output: seconds between the two
    TattributeMessage owner;    // the shape's message
    TattributeMessage inputGeometryMsg;
    TattributeGeneric localGeometry; // TdataMesh or TdataCurve in object space
    TattributeTyped worldMatrix;     // the shape's world matrix
    TattributeTyped ownerPositions;  // world points (mesh points, curve edit points)
    TattributeTyped preOwnerPositions;
    TattributeTyped ownerVelocities; // per second
    TattributeTyped ownerMasses;     // 1 per point
    TattributeTyped sortedId;        // a geometry's ids are its point indices
    TattributeTyped idIndex;
    TattributeCompound idMapping;
    TattributeTyped inputForce; // multi, for an owner that reacts to fields
    Tattribute3Double ownerCentroid;
    Tattribute3Double ownerCentroidLocal;
    TattributeInt32 groupId;
    TattributeTyped components; // point indices of the component arrays; empty: every point
    TattributeTyped componentPositions;
    TattributeTyped preComponentPositions;
    TattributeTyped componentVelocities;
    Tattribute3Double componentCentroid;
    Tattribute3Double componentCentroidLocal;
    TattributeTyped sweptGeometry;      // world space
    TattributeTyped localSweptGeometry; // object space
    TattributeTyped ratePPIn;
    TattributeTyped ratePPOut;
    TattributeBoolean matrixModified; // set by the last swept update
    TattributeBoolean geometryModified;
    TattributeInt32 tessellationFactor;
    TattributeDouble resilience;
    TattributeDouble friction;
};

class TdynGeoConnector : public TdependNode {
    TDECLARE_NODE(TdynGeoConnector, TdnVSTdynGeoConnector)
public:
    TdynGeoConnector();
    ~TdynGeoConnector() override;

    // The one entry point for the module: the connector of a mesh or curve shape (a transform stands
    // for its first shape). Without one and with `create`, makes "geoConnector#" and wires it: the
    // shape's message to owner, its object-space geometry to localGeometry, its worldMatrix, and
    // time1.outTime to currentTime. Null, with `why` set, for anything else.
    static TdynGeoConnector* connectorFor(TdagObject* shape, bool create, std::string& why);
    // Whether connectorFor can serve the object.
    static bool canConnect(const TdependNode* object);

    // Connects ownerPositions, ownerVelocities and ownerCentroid to the auxiliary's ownerPosData,
    // ownerVelData and ownerCentroid (the owner link itself is the auxiliary's setOwner).
    bool connectOwnerDataTo(TdynAuxiliary* aux, std::string& why);
    // Connects sweptGeometry to a plug that takes a TdataSweptGeometry (an emitter's input, an element
    // of a particle object's collisionGeometry ...). False, with `why`, when the graph refuses.
    bool connectSweptGeometryTo(const Tplug& destination, std::string& why);

    Tplug sweptGeometryPlug() { return Tplug(this, &sVsData()->sweptGeometry); }
    Tplug localSweptGeometryPlug() { return Tplug(this, &sVsData()->localSweptGeometry); }
    Tplug ownerPositionsPlug() { return Tplug(this, &sVsData()->ownerPositions); }
    Tplug ownerVelocitiesPlug() { return Tplug(this, &sVsData()->ownerVelocities); }
    Tplug ownerCentroidPlug() { return Tplug(this, &sVsData()->ownerCentroid); }
    Tplug resiliencePlug() { return Tplug(this, &sVsData()->resilience); }
    Tplug frictionPlug() { return Tplug(this, &sVsData()->friction); }

    // The shape connected to owner, or null.
    TdagObject* ownerShape() const;
    // The current world swept geometry, pulled (null when the shape has no geometry).
    TdynSweptGeometry* currentSweptGeometry();

    // Forces the next swept update of every connector to build anew (cleared by the first that does).
    static void forceRebuild() { fsForceRebuild = true; }

    bool computePlug(const Tplug& plug, TdataBlock& block) override;

private:
    bool computeOwnerArrays(TdataBlock& block);
    bool computeComponentArrays(TdataBlock& block);
    bool computeOwnerCentroid(TdataBlock& block);
    bool computeSweptGeometry(TdataBlock& block, bool world);

    static bool fsForceRebuild;

    // What the last normal-context evaluation saw.
    struct History {
        bool valid = false;
        TanimTime time;
        T4dDblVectorArray positions;
    };
    History fOwnerHistory, fComponentHistory;
    // The last geometry letter and matrix each swept output was built from.
    struct SweptSource {
        Tdata letter; // held, so that an in-place change of it shows as another letter
        T4dDblMatrix matrix;
        bool valid = false;
    };
    SweptSource fWorldSource, fLocalSource;
};
