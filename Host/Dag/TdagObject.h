#pragma once
// Nodes of the scene hierarchy: every object has a parent (or the world) and
// a world matrix, and tells its children when that matrix changes.

#include "Host/Graph/TdependGraph.h"
#include "Host/Math/TboundingBox.h"

class TdnVSTdagObject : public TdependNodeVS {
public:
    TdnVSTdagObject();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeBoolean visibility;
    TattributeTyped parentMatrix;       // the parent's world matrix
    TattributeTyped parentInverseMatrix;
    TattributeTyped worldMatrix;        // local matrix times parent matrix
    TattributeTyped worldInverseMatrix;
};

class TdagObject : public TdependNode {
    TDECLARE_NODE(TdagObject, TdnVSTdagObject)
public:
    TdagObject* parentObject() const { return fParent; }
    const std::vector<TdagObject*>& childObjects() const { return fChildren; }
    // Moves the object under `parent` (null: the world).
    void setParentObject(TdagObject* parent);
    // "|group|ball" style path.
    Tstring fullPathName() const;

    // The world matrix as a letter envelope; pulling it keeps it current.
    Tdata getWorldMatrix(TdataBlock& block, int instance = 0);
    T4dDblMatrix worldMatrix();
    // The object's own matrix (identity for shapes).
    virtual T4dDblMatrix computeLocalXform(TdataBlock& block);
    virtual TboundingBox boundingBox() { return {}; }
    bool isVisible();

    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    void setDependentsDirty(TmsgDirty& msg) override;
    void doPreDraw() override;
    virtual void doDraw() {}
    virtual void doPostDraw() {}
    // Tells the hierarchy the object's look changed.
    virtual void childChanged() {}
    void aboutToDelete() override;

private:
    TdagObject* fParent = nullptr;
    std::vector<TdagObject*> fChildren;
};

// Matrix letters as an envelope.
Tdata makeMatrixData(const T4dDblMatrix& m);
