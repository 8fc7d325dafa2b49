#include "Host/Dag/Tshape.h"

TDEFINE_ABSTRACT_NODE(Tshape, TdnVSTshape, TdagObject, "shape", "SHAP")
TDEFINE_ABSTRACT_NODE(TgeometryShape, TdnVSTgeometryShape, Tshape, "geometryShape", "GSHP")
TDEFINE_NODE(TmeshShape, TdnVSTmeshShape, TgeometryShape, "mesh", "MESH")
TDEFINE_NODE(TcurveShape, TdnVSTcurveShape, TgeometryShape, "curve", "CRVS")

namespace {
// World-space copy of a geometry letter, with the world matrix recorded.
template <class L> Tdata toWorld(const Tdata& local, const T4dDblMatrix& world) {
    auto* l = local.as<L>();
    if (!l) return Tdata();
    Tdata out(new L(*l));
    auto* w = out.as<L>();
    if constexpr (std::is_same_v<L, TdataMesh>) w->mesh().transform(world);
    else w->curve().transform(world);
    w->setMatrix(world);
    return out;
}
} // namespace

// ---- mesh ----

TdnVSTmeshShape::TdnVSTmeshShape()
    : inMesh("inMesh", "i", makeIffTag("INME"), TdataMesh::sClass),
      outMesh("outMesh", "o", makeIffTag("OUME"), TdataMesh::sClass),
      worldMesh("worldMesh", "w", makeIffTag("WOME"), TdataMesh::sClass) {
    outMesh.setWritable(false);
    outMesh.setStorable(false);
    worldMesh.setWritable(false);
    worldMesh.setStorable(false);
}

void TdnVSTmeshShape::appendAttributes(TattributeList& list) {
    TdnVSTgeometryShape::appendAttributes(list);
    list.addAttribute(&inMesh);
    list.addAttribute(&outMesh);
    list.addAttribute(&worldMesh);
}

bool TdnVSTmeshShape::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTgeometryShape::setupDependencies(m)) return false;
    m.attributeAffects(&inMesh, &outMesh);
    m.attributeAffects(&inMesh, &worldMesh);
    m.attributeAffects(&worldMatrix, &worldMesh);
    m.attributeAffects(&parentMatrix, &worldMesh);
    return true;
}

bool TmeshShape::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = static_cast<TdnVSTmeshShape*>(vsData()); // derived shapes have their own
    if (plug.attribute() == &vs->outMesh) {
        // Shares the input's letter: no copy unless someone writes.
        block.outputValue(&vs->outMesh).set(block.inputValue(&vs->inMesh).data());
        return true;
    }
    if (plug.attribute() == &vs->worldMesh) {
        Tdata local = block.inputValue(&vs->outMesh).data();
        T4dDblMatrix wm = block.inputValue(&vs->worldMatrix).asMatrix();
        block.outputValue(&vs->worldMesh).set(toWorld<TdataMesh>(local, wm));
        return true;
    }
    return TgeometryShape::computePlug(plug, block);
}

void TmeshShape::doPreDraw() {
    if (!isVisible()) return;
    worldMatrix();
    mesh();
}

const TpolyMesh* TmeshShape::mesh() {
    Tdata d;
    getAttributeValue(&static_cast<TdnVSTmeshShape*>(vsData())->outMesh, d);
    auto* m = d.as<TdataMesh>();
    return m ? &m->mesh() : nullptr; // the letter stays alive in the block
}

void TmeshShape::setMesh(TpolyMesh m) {
    TstandaloneValue value(&static_cast<TdnVSTmeshShape*>(vsData())->inMesh);
    TdataHandle h = value.handle();
    h.set(makeData<TdataMesh>(std::move(m)));
    setCachedValue(Tplug(this, &static_cast<TdnVSTmeshShape*>(vsData())->inMesh), h, TdgContext::fsNormal);
}

TboundingBox TmeshShape::boundingBox() {
    const TpolyMesh* m = mesh();
    return m ? m->boundingBox() : TboundingBox();
}

// ---- curve ----

TdnVSTcurveShape::TdnVSTcurveShape()
    : create("create", "cr", makeIffTag("CRCR"), TdataCurve::sClass),
      local("local", "l", makeIffTag("CRLO"), TdataCurve::sClass),
      worldSpace("worldSpace", "ws", makeIffTag("CRWS"), TdataCurve::sClass) {
    local.setWritable(false);
    local.setStorable(false);
    worldSpace.setWritable(false);
    worldSpace.setStorable(false);
}

void TdnVSTcurveShape::appendAttributes(TattributeList& list) {
    TdnVSTgeometryShape::appendAttributes(list);
    list.addAttribute(&create);
    list.addAttribute(&local);
    list.addAttribute(&worldSpace);
}

bool TdnVSTcurveShape::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSTgeometryShape::setupDependencies(m)) return false;
    m.attributeAffects(&create, &local);
    m.attributeAffects(&create, &worldSpace);
    m.attributeAffects(&worldMatrix, &worldSpace);
    m.attributeAffects(&parentMatrix, &worldSpace);
    return true;
}

bool TcurveShape::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    if (plug.attribute() == &vs->local) {
        block.outputValue(&vs->local).set(block.inputValue(&vs->create).data());
        return true;
    }
    if (plug.attribute() == &vs->worldSpace) {
        Tdata l = block.inputValue(&vs->local).data();
        T4dDblMatrix wm = block.inputValue(&vs->worldMatrix).asMatrix();
        block.outputValue(&vs->worldSpace).set(toWorld<TdataCurve>(l, wm));
        return true;
    }
    return TgeometryShape::computePlug(plug, block);
}

void TcurveShape::doPreDraw() {
    if (!isVisible()) return;
    worldMatrix();
    curve();
}

const Tcurve* TcurveShape::curve() {
    Tdata d;
    getAttributeValue(&sVsData()->local, d);
    auto* c = d.as<TdataCurve>();
    return c ? &c->curve() : nullptr;
}

void TcurveShape::setCurve(Tcurve c) {
    TstandaloneValue value(&sVsData()->create);
    TdataHandle h = value.handle();
    h.set(makeData<TdataCurve>(std::move(c)));
    setCachedValue(Tplug(this, &sVsData()->create), h, TdgContext::fsNormal);
}

TboundingBox TcurveShape::boundingBox() {
    const Tcurve* c = curve();
    return c ? c->boundingBox() : TboundingBox();
}
