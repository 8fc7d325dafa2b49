#include "Commands/Collisions/TdynGeoConnectableView.h"

#include "Commands/Collisions/TdynGeoConnector.h"
#include "Commands/Scene/TdynStatic.h"

TdynGeoConnectableView::TdynGeoConnectableView(TdagObject* object) {
    TdagObject* s = TdynStatic::getShape(object);
    if (TmeshShape::cast(s) || TcurveShape::cast(s)) fShape = TgeometryShape::cast(s);
}

bool TdynGeoConnectableView::isConnectable(const TdependNode* node) {
    return TdynGeoConnectableView(TdagObject::cast(const_cast<TdependNode*>(node))).isValid();
}

bool TdynGeoConnectableView::isMesh() const {
    return TmeshShape::cast(fShape) != nullptr;
}

bool TdynGeoConnectableView::isCurve() const {
    return TcurveShape::cast(fShape) != nullptr;
}

Tplug TdynGeoConnectableView::geometryOutput() const {
    if (auto* m = TmeshShape::cast(fShape)) return Tplug(m, &static_cast<TdnVSTmeshShape*>(m->vsData())->outMesh);
    if (auto* c = TcurveShape::cast(fShape)) return Tplug(c, &TcurveShape::sVsData()->local);
    return {};
}

Tplug TdynGeoConnectableView::worldMatrixOutput() const {
    return fShape ? Tplug(fShape, &static_cast<TdnVSTdagObject*>(fShape->vsData())->worldMatrix) : Tplug();
}

Tplug TdynGeoConnectableView::messagePlug() const {
    return fShape ? Tplug(fShape, &fShape->vsData()->message) : Tplug();
}

TdynGeoConnector* TdynGeoConnectableView::connector() const {
    if (!fShape) return nullptr;
    for (const Tplug& d : messagePlug().destinations())
        if (auto* c = TdynGeoConnector::cast(d.node());
            c && d.attribute() == &TdynGeoConnector::sVsData()->owner)
            return c;
    return nullptr;
}

TdynGeoConnector* TdynGeoConnectableView::connector(bool create, std::string& why) const {
    return TdynGeoConnector::connectorFor(fShape, create, why);
}
