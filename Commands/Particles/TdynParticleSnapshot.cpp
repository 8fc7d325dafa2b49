#include "Commands/Particles/TdynParticleSnapshot.h"

#include "Commands/Scene/TdynStatic.h"

#include <algorithm>

TdynParticleSnapshot::TdynParticleSnapshot(std::shared_ptr<TdynAttributePool> pool) : fPool(std::move(pool)) {
    for (TdependNode* n : TdynStatic::particleNodes()) {
        auto* p = TdynParticleShape::cast(n);
        if (!p) continue;
        Object o{p, p->localDynamicAttrs(), {}, 0, 0};
        TdataBlock& block = p->normalBlock();
        for (unsigned i = 0; i < p->attributeCount(); ++i) {
            Tattribute* a = p->attribute(i);
            if (a && a->type() == TattrType::Typed && !a->isArray() && !a->isElementOfArray())
                o.arrays.emplace_back(a, block.outputValue(a).data());
        }
        o.nextId = block.outputValue(TdynParticleShape::sVsData()->nextId).asDouble();
        o.nextId0 = block.outputValue(TdynParticleShape::sVsData()->nextId0).asDouble();
        fObjects.push_back(std::move(o));
    }
}

void TdynParticleSnapshot::restore() const {
    TdependGraph& g = TdependGraph::current();
    for (const Object& o : fObjects) {
        TdynParticleShape* p = o.shape;
        if (!p->isInGraph()) continue;
        // Attributes added since go; those removed since come back.
        for (Tattribute* a : p->localDynamicAttrs())
            if (!a->parent() && std::find(o.added.begin(), o.added.end(), a) == o.added.end())
                (*fPool)[a] = p->removeAttribute(a);
        for (Tattribute* a : o.added)
            if (auto it = fPool->find(a); it != fPool->end() && it->second) {
                p->addAttribute(std::move(it->second));
                fPool->erase(it);
            }
        for (const auto& [a, data] : o.arrays) {
            if (!p->hasAttribute(a)) continue;
            p->setAttributeValue(a, data);
            g.dirtyDependents(Tplug(p, a));
        }
        auto* vs = TdynParticleShape::sVsData();
        p->setAttributeValue(vs->nextId, o.nextId);
        p->setAttributeValue(vs->nextId0, o.nextId0);
        TdataHandle count = p->normalBlock().outputValue(vs->count);
        count.set(static_cast<std::int32_t>(p->countNoCompute()));
        g.dirtyDependents(Tplug(p, vs->count));
    }
}
