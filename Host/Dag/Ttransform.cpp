#include "Host/Dag/Ttransform.h"

TDEFINE_NODE(Ttransform, TdnVSTtransform, TdagObject, "transform", "XFRM")

namespace {
const char* const kShearNames[] = {"shearXY", "shearXZ", "shearYZ"};
const char* const kShearShort[] = {"shxy", "shxz", "shyz"};
} // namespace

TdnVSTtransform::TdnVSTtransform()
    : translate("translate", "t", makeIffTag("TRAN")), rotate("rotate", "r", makeIffTag("ROTA")),
      scale("scale", "s", makeIffTag("SCAL")), shear("shear", "sh", makeIffTag("SHEA"), kShearNames, kShearShort),
      rotateOrder("rotateOrder", "ro", makeIffTag("ROTO")),
      rotatePivot("rotatePivot", "rp", makeIffTag("ROTP")),
      rotatePivotTranslate("rotatePivotTranslate", "rpt", makeIffTag("RPTR")),
      scalePivot("scalePivot", "sp", makeIffTag("SCAP")),
      scalePivotTranslate("scalePivotTranslate", "spt", makeIffTag("SPTR")),
      matrix("matrix", "m", makeIffTag("MATR"), TdataMatrix::sClass),
      inverseMatrix("inverseMatrix", "im", makeIffTag("IMAT"), TdataMatrix::sClass) {
    scale.setNativeDefaultData(1, 1, 1);
    for (Tattribute* a : {static_cast<Tattribute*>(&translate), static_cast<Tattribute*>(&rotate),
                          static_cast<Tattribute*>(&scale)}) {
        a->setKeyable(true);
        for (Tattribute* c : static_cast<TattributeCompound*>(a)->children()) c->setKeyable(true);
    }
    const char* orders[] = {"xyz", "yzx", "zxy", "xzy", "yxz", "zyx"};
    for (int i = 0; i < 6; ++i) rotateOrder.addField(orders[i], i);
    for (Tattribute* a : {static_cast<Tattribute*>(&matrix), static_cast<Tattribute*>(&inverseMatrix)}) {
        a->setWritable(false);
        a->setStorable(false);
        a->setNativeDefaultData(makeMatrixData(T4dDblMatrix()));
    }
}

void TdnVSTtransform::appendAttributes(TattributeList& list) {
    TdnVSTdagObject::appendAttributes(list);
    for (Tattribute* a : {static_cast<Tattribute*>(&translate), static_cast<Tattribute*>(&rotate),
                          static_cast<Tattribute*>(&scale), static_cast<Tattribute*>(&shear),
                          static_cast<Tattribute*>(&rotateOrder), static_cast<Tattribute*>(&rotatePivot),
                          static_cast<Tattribute*>(&rotatePivotTranslate), static_cast<Tattribute*>(&scalePivot),
                          static_cast<Tattribute*>(&scalePivotTranslate), static_cast<Tattribute*>(&matrix),
                          static_cast<Tattribute*>(&inverseMatrix)})
        list.addAttribute(a);
}

bool TdnVSTtransform::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTdagObject::setupDependencies(m)) return false;
    for (Tattribute* a : {static_cast<Tattribute*>(&translate), static_cast<Tattribute*>(&rotate),
                          static_cast<Tattribute*>(&scale), static_cast<Tattribute*>(&shear),
                          static_cast<Tattribute*>(&rotateOrder), static_cast<Tattribute*>(&rotatePivot),
                          static_cast<Tattribute*>(&rotatePivotTranslate), static_cast<Tattribute*>(&scalePivot),
                          static_cast<Tattribute*>(&scalePivotTranslate)}) {
        m.attributeAffects(a, &matrix);
        m.attributeAffects(a, &inverseMatrix);
        m.attributeAffects(a, &worldMatrix);
        m.attributeAffects(a, &worldInverseMatrix);
    }
    return true;
}

TxformMatrix Ttransform::xform(TdataBlock& block) {
    // Derived node classes hold their own copies of these attributes.
    auto* vs = static_cast<TdnVSTtransform*>(vsData());
    TxformMatrix x;
    x.setTranslation(block.inputValue(&vs->translate).asVector());
    x.setRotation(block.inputValue(&vs->rotate).asVector());
    x.setScale(block.inputValue(&vs->scale).asVector());
    x.setShear(block.inputValue(&vs->shear).asVector());
    x.setRotateOrder(block.inputValue(&vs->rotateOrder).asInt());
    x.setRotatePivot(block.inputValue(&vs->rotatePivot).asVector());
    x.setRotatePivotTranslation(block.inputValue(&vs->rotatePivotTranslate).asVector());
    x.setScalePivot(block.inputValue(&vs->scalePivot).asVector());
    x.setScalePivotTranslation(block.inputValue(&vs->scalePivotTranslate).asVector());
    return x;
}

void Ttransform::setXform(const TxformMatrix& x) {
    // Derived node classes hold their own copies of these attributes.
    auto* vs = static_cast<TdnVSTtransform*>(vsData());
    auto put = [&](Tattribute3Double& a, const T4dDblVector& v) {
        TstandaloneValue value(&a);
        TdataHandle h = value.handle();
        h.set(v);
        setCachedValue(Tplug(this, &a), h, TdgContext::fsNormal);
    };
    put(vs->translate, x.translation());
    put(vs->rotate, x.rotation());
    put(vs->scale, x.scale());
    put(vs->shear, x.shear());
}

T4dDblMatrix Ttransform::computeLocalXform(TdataBlock& block) { return xform(block).asMatrix(); }

bool Ttransform::computePlug(const Tplug& plug, TdataBlock& block) {
    // Derived node classes hold their own copies of these attributes.
    auto* vs = static_cast<TdnVSTtransform*>(vsData());
    if (plug.attribute() == &vs->matrix) {
        block.outputValue(&vs->matrix).set(makeMatrixData(computeLocalXform(block)));
        return true;
    }
    if (plug.attribute() == &vs->inverseMatrix) {
        block.outputValue(&vs->inverseMatrix).set(makeMatrixData(computeLocalXform(block).inverse()));
        return true;
    }
    return TdagObject::computePlug(plug, block);
}
