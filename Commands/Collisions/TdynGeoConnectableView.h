#pragma once
// What the dynamics needs of a shape that a geometry connector can serve.
// The host's mesh and curve shapes know nothing of dynamics, so this is a
// light view over such a shape rather than a base class of it.

#include "Host/Dag/Tshape.h"

#include <string>

class TdynGeoConnector;

class TdynGeoConnectableView {
public:
    // A mesh or curve shape, or a transform whose first shape is one; anything else gives an invalid view.
    explicit TdynGeoConnectableView(TdagObject* object);

    static bool isConnectable(const TdependNode* node);

    bool isValid() const { return fShape != nullptr; }
    TgeometryShape* shape() const { return fShape; }
    bool isMesh() const;
    bool isCurve() const;
    // The shape's object-space geometry output (a mesh's outMesh, a curve's local).
    Tplug geometryOutput() const;
    Tplug worldMatrixOutput() const;
    Tplug messagePlug() const;
    // The connector fed by this shape's message, or null.
    TdynGeoConnector* connector() const;
    // Finds or makes the connector (see TdynGeoConnector::connectorFor).
    TdynGeoConnector* connector(bool create, std::string& why) const;

private:
    TgeometryShape* fShape = nullptr;
};
