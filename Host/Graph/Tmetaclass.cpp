#include "Host/Graph/Tmetaclass.h"
#include "Host/Graph/TdependGraph.h"

#include <cstring>

namespace {
std::vector<TdependNodeMetaClass*>& registry() {
    static std::vector<TdependNodeMetaClass*> r;
    return r;
}
} // namespace

void TnodeTypeRegistry::add(TdependNodeMetaClass* m) {
    for (auto* r : registry())
        if (std::strcmp(r->typeName(), m->typeName()) == 0) return;
    registry().push_back(m);
}

const TdependNodeMetaClass* TnodeTypeRegistry::find(const std::string& typeName) {
    for (auto* r : registry())
        if (typeName == r->typeName()) return r;
    return nullptr;
}

const std::vector<TdependNodeMetaClass*>& TnodeTypeRegistry::all() { return registry(); }

void TnodeTypeRegistry::cleanupAll() {
    for (auto* r : registry()) r->cleanupClass();
}

void TdependGraph::registerNodeType(TdependNodeMetaClass* meta) { TnodeTypeRegistry::add(meta); }
