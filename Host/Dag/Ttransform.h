#pragma once
// A transform node: translate, rotate (degrees), scale, shear and pivots
// composed into `matrix`.

#include "Host/Dag/TdagObject.h"
#include "Host/Math/TxformMatrix.h"

class TdnVSTtransform : public TdnVSTdagObject {
public:
    TdnVSTtransform();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    Tattribute3Double translate;
    Tattribute3Double rotate;
    Tattribute3Double scale;
    Tattribute3Double shear;
    TattributeEnum rotateOrder;
    Tattribute3Double rotatePivot;
    Tattribute3Double rotatePivotTranslate;
    Tattribute3Double scalePivot;
    Tattribute3Double scalePivotTranslate;
    TattributeTyped matrix;
    TattributeTyped inverseMatrix;
};

class Ttransform : public TdagObject {
    TDECLARE_NODE(Ttransform, TdnVSTtransform)
public:
    T4dDblMatrix computeLocalXform(TdataBlock& block) override;
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    // The parts as they stand (pulling connected ones).
    TxformMatrix xform(TdataBlock& block);
    // Writes the parts as values from outside (commands).
    void setXform(const TxformMatrix& x);
};
