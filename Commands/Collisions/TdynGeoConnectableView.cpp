#include "Commands/Collisions/TdynGeoConnectable.h"

#include "Commands/Collisions/TdynGeoConnector.h"
#include "Commands/Scene/TdynStatic.h"

TdynGeoConnectable::TdynGeoConnectable(TdagObject* object) {
    TdagObject* s = TdynStatic::getShape(object);
    if (TmeshShape::cast(s) || TcurveShape::cast(s)) fShape = TgeometryShape::cast(s);
}

bool TdynGeoConnectable::isConnectable(const TdependNode* node) {
    return TdynGeoConnectable(TdagObject::cast(const_cast<TdependNode*>(node))).isValid();
}

bool TdynGeoConnectable::isMesh() const {
    return TmeshShape::cast(fShape) != nullptr;
}

bool TdynGeoConnectable::isCurve() const {
    return TcurveShape::cast(fShape) != nullptr;
}

Tplug TdynGeoConnectable::geometryOutput() const {
    if (auto* m = TmeshShape::cast(fShape)) return Tplug(m, &TmeshShape::sVsData()->outMesh);
    if (auto* c = TcurveShape::cast(fShape)) return Tplug(c, &TcurveShape::sVsData()->local);
    return {};
}

Tplug TdynGeoConnectable::worldMatrixOutput() const {
    return fShape ? Tplug(fShape, &static_cast<TdnVSTdagObject*>(fShape->vsData())->worldMatrix) : Tplug();
}

Tplug TdynGeoConnectable::messagePlug() const {
    return fShape ? Tplug(fShape, &fShape->vsData()->message) : Tplug();
}

TdynGeoConnector* TdynGeoConnectable::connector() const {
    if (!fShape) return nullptr;
    for (const Tplug& d : messagePlug().destinations())
        if (auto* c = TdynGeoConnector::cast(d.node());
            c && d.attribute() == &TdynGeoConnector::sVsData()->owner)
            return c;
    return nullptr;
}

TdynGeoConnector* TdynGeoConnectable::connector(bool create, std::string& why) const {
    return TdynGeoConnector::connectorFor(fShape, create, why);
}
