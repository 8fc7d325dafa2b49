#pragma once
// Leaves of the hierarchy that carry geometry. A shape's world matrix is its
// parent transform's.

#include "Host/Dag/TdagObject.h"
#include "Host/Data/TdataGeometry.h"

class TdnVSTshape : public TdnVSTdagObject {
public:
    TdnVSTshape() = default;
};

class Tshape : public TdagObject {
    TDECLARE_NODE(Tshape, TdnVSTshape)
};

class TdnVSTgeometryShape : public TdnVSTshape {
public:
    TdnVSTgeometryShape() = default;
};

class TgeometryShape : public Tshape {
    TDECLARE_NODE(TgeometryShape, TdnVSTgeometryShape)
};

class TdnVSTmeshShape : public TdnVSTgeometryShape {
public:
    TdnVSTmeshShape();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeTyped inMesh;    // the mesh as given (stored, or from a connection)
    TattributeTyped outMesh;   // the mesh in object space
    TattributeTyped worldMesh; // in world space, its letter's matrix the world matrix
};

// A polygon mesh shape.
class TmeshShape : public TgeometryShape {
    TDECLARE_NODE(TmeshShape, TdnVSTmeshShape)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    void doPreDraw() override;
    TboundingBox boundingBox() override;
    // The object-space mesh as it stands now (null if none).
    const TpolyMesh* mesh();
    void setMesh(TpolyMesh mesh);
};

class TdnVSTcurveShape : public TdnVSTgeometryShape {
public:
    TdnVSTcurveShape();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeTyped create;     // the curve as given
    TattributeTyped local;      // object space
    TattributeTyped worldSpace; // world space
};

// A curve of degree 1 or 3.
class TcurveShape : public TgeometryShape {
    TDECLARE_NODE(TcurveShape, TdnVSTcurveShape)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    void doPreDraw() override;
    TboundingBox boundingBox() override;
    const Tcurve* curve();
    void setCurve(Tcurve curve);
};
