#include "Host/Dag/TdagObject.h"

#include <algorithm>

TDEFINE_ABSTRACT_NODE(TdagObject, TdnVSTdagObject, TdependNode, "dagNode", "DAGN")

Tdata makeMatrixData(const T4dDblMatrix& m) { return makeData<TdataMatrix>(m); }

TdnVSTdagObject::TdnVSTdagObject()
    : visibility("visibility", "v", makeIffTag("VISI")),
      parentMatrix("parentMatrix", "pm", makeIffTag("PMAT"), TdataMatrix::sClass),
      parentInverseMatrix("parentInverseMatrix", "pim", makeIffTag("PIMT"), TdataMatrix::sClass),
      worldMatrix("worldMatrix", "wm", makeIffTag("WMAT"), TdataMatrix::sClass),
      worldInverseMatrix("worldInverseMatrix", "wim", makeIffTag("WIMT"), TdataMatrix::sClass) {
    visibility.setNativeDefaultData(1.0);
    visibility.setKeyable(true);
    for (Tattribute* a : {static_cast<Tattribute*>(&parentMatrix), static_cast<Tattribute*>(&parentInverseMatrix),
                          static_cast<Tattribute*>(&worldMatrix), static_cast<Tattribute*>(&worldInverseMatrix)}) {
        a->setWritable(false);
        a->setStorable(false);
        a->setComputeModifies(true);
        a->setNativeDefaultData(makeMatrixData(T4dDblMatrix()));
    }
}

void TdnVSTdagObject::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    list.addAttribute(&visibility);
    list.addAttribute(&parentMatrix);
    list.addAttribute(&parentInverseMatrix);
    list.addAttribute(&worldMatrix);
    list.addAttribute(&worldInverseMatrix);
}

bool TdnVSTdagObject::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    m.attributeAffects(&parentMatrix, &worldMatrix);
    m.attributeAffects(&parentMatrix, &worldInverseMatrix);
    m.attributeAffects(&parentMatrix, &parentInverseMatrix);
    return true;
}

void TdagObject::setParentObject(TdagObject* parent) {
    if (parent == fParent) return;
    for (TdagObject* p = parent; p; p = p->fParent)
        if (p == this) throw TgraphError("cannot parent " + name() + " under its own descendant " + parent->name());
    if (fParent) {
        auto& c = fParent->fChildren;
        c.erase(std::remove(c.begin(), c.end(), this), c.end());
    }
    fParent = parent;
    if (parent) parent->fChildren.push_back(this);
    if (isInGraph()) TdependGraph::current().dirtyPlug(Tplug(this, &static_cast<TdnVSTdagObject*>(vsData())->parentMatrix));
}

Tstring TdagObject::fullPathName() const {
    Tstring path;
    for (const TdagObject* o = this; o; o = o->fParent) path = "|" + o->name() + path;
    return path;
}

T4dDblMatrix TdagObject::computeLocalXform(TdataBlock&) { return T4dDblMatrix(); }

Tdata TdagObject::getWorldMatrix(TdataBlock& block, int) {
    auto* vs = static_cast<TdnVSTdagObject*>(vsData());
    return block.inputValue(&vs->worldMatrix).data();
}

T4dDblMatrix TdagObject::worldMatrix() {
    Tdata d = getWorldMatrix(normalBlock());
    auto* m = d.as<TdataMatrix>();
    return m ? m->matrix() : T4dDblMatrix();
}

bool TdagObject::isVisible() {
    auto* vs = static_cast<TdnVSTdagObject*>(vsData());
    double v = 1;
    getAttributeValue(&vs->visibility, v);
    return v != 0;
}

bool TdagObject::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = static_cast<TdnVSTdagObject*>(vsData());
    const Tattribute* a = plug.attribute();
    if (a == &vs->parentMatrix) {
        T4dDblMatrix pm;
        if (fParent) {
            // The parent is read in the same context, so timed reads see the parent at that time.
            TdataBlock* pb = fParent->makeDataBlock(block.context(), true);
            if (auto* m = pb->inputValue(&static_cast<TdnVSTdagObject*>(fParent->vsData())->worldMatrix)
                              .data()
                              .as<TdataMatrix>())
                pm = m->matrix();
        }
        block.outputValue(&vs->parentMatrix).set(makeMatrixData(pm));
        return true;
    }
    if (a == &vs->parentInverseMatrix) {
        T4dDblMatrix pm = block.inputValue(&vs->parentMatrix).asMatrix();
        block.outputValue(&vs->parentInverseMatrix).set(makeMatrixData(pm.inverse()));
        return true;
    }
    if (a == &vs->worldMatrix) {
        T4dDblMatrix local = computeLocalXform(block);
        T4dDblMatrix pm = block.inputValue(&vs->parentMatrix).asMatrix();
        block.outputValue(&vs->worldMatrix).set(makeMatrixData(local * pm));
        return true;
    }
    if (a == &vs->worldInverseMatrix) {
        T4dDblMatrix wm = block.inputValue(&vs->worldMatrix).asMatrix();
        block.outputValue(&vs->worldInverseMatrix).set(makeMatrixData(wm.inverse()));
        return true;
    }
    return TdependNode::computePlug(plug, block);
}

void TdagObject::setDependentsDirty(TmsgDirty& msg) {
    TdependNode::setDependentsDirty(msg);
    auto* vs = static_cast<TdnVSTdagObject*>(vsData());
    if (msg.plug().attribute() == &vs->worldMatrix) {
        TdependGraph& g = TdependGraph::current();
        for (TdagObject* c : fChildren)
            g.queueDirty(Tplug(c, &static_cast<TdnVSTdagObject*>(c->vsData())->parentMatrix));
    }
}

void TdagObject::doPreDraw() {
    if (isVisible()) worldMatrix();
}

void TdagObject::aboutToDelete() {
    // Whoever deletes a subtree deletes the children itself; any left go to the world.
    for (TdagObject* c : fChildren) c->fParent = nullptr;
    fChildren.clear();
    if (fParent) {
        auto& c = fParent->fChildren;
        c.erase(std::remove(c.begin(), c.end(), this), c.end());
        fParent = nullptr;
    }
}
