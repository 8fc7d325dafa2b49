// Graph queries of TdynStatic.

#include "Commands/Scene/TdynStatic.h"

#include "Host/Dag/Tmodel.h"
#include "Host/Dag/Tshape.h"

#include <algorithm>

namespace {
std::vector<const Tmetaclass*>& dynamicTypes() {
    static std::vector<const Tmetaclass*> types;
    return types;
}
} // namespace

bool TdynStatic::evaluateInputConnection(const Tplug& plug, const TdgContext& context, TdataHandle& handle) {
    return plug.evalConnectionValue(false, context, handle);
}

int TdynStatic::multiIndexForInput(TdependNode* node, const Tattribute* multi, const Tplug& source) {
    for (const Tplug& d : source.destinations())
        if (d.node() == node) {
            for (const Tattribute* a = d.attribute(); a; a = a->parent())
                if (a == multi) return d.multiIndex();
        }
    return -1;
}

TdagObject* TdynStatic::getShape(TdagObject* object) {
    auto shapes = getShapes(object);
    return shapes.empty() ? nullptr : shapes.front();
}

std::vector<TdagObject*> TdynStatic::getShapes(TdagObject* object) {
    std::vector<TdagObject*> out;
    if (!object) return out;
    if (object->isA(Tshape::sMetaclass())) {
        out.push_back(object);
        return out;
    }
    for (TdagObject* c : object->childObjects())
        if (c->isA(Tshape::sMetaclass())) out.push_back(c);
    return out;
}

bool TdynStatic::isAGeometry(const TdependNode* node) {
    return node && node->typeof().derivesFrom(TgeometryShape::sMetaclass());
}

bool TdynStatic::isPathVisible(TdagObject* object) {
    for (TdagObject* o = object; o; o = o->parentObject())
        if (!o->isVisible()) return false;
    return object != nullptr;
}

TdagObject* TdynStatic::dynamicObject(TdagObject* object) {
    if (!object) return nullptr;
    if (isADynamicObject(object)) return object;
    for (TdagObject* s : getShapes(object))
        if (isADynamicObject(s)) return s;
    return nullptr;
}

TdagObject* TdynStatic::findDagObject(const Tstring& name) {
    if (!TdependGraph::hasCurrent()) return nullptr;
    std::string n = name;
    if (!n.empty() && n[0] == '|') n = n.substr(n.rfind('|') + 1);
    return TdagObject::cast(TdependGraph::current().findNode(n));
}

TdagObject* TdynStatic::findDagObjectByType(const Tstring& name, const Tmetaclass& type) {
    TdagObject* o = findDagObject(name);
    if (!o) return nullptr;
    if (o->isA(type)) return o;
    for (TdagObject* s : getShapes(o))
        if (s->isA(type)) return s;
    return nullptr;
}

Tstring TdynStatic::findPathInModel(const TdependNode* node) {
    if (auto* dag = TdagObject::cast(const_cast<TdependNode*>(node))) return dag->fullPathName();
    return node ? node->name() : Tstring();
}

bool TdynStatic::isADynamicObject(const TdependNode* node) {
    if (!node) return false;
    for (const Tmetaclass* t : dynamicTypes())
        if (node->typeof().derivesFrom(*t)) return true;
    return false;
}

void TdynStatic::registerDynamicType(const Tmetaclass& type) {
    auto& v = dynamicTypes();
    if (std::find(v.begin(), v.end(), &type) == v.end()) v.push_back(&type);
}
