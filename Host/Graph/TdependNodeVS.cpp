#include "Host/Graph/TdependNodeVS.h"

#include <algorithm>
#include <stdexcept>

TdependNodeVS::TdependNodeVS()
    : message("message", "msg", makeIffTag("MESG")), caching("caching", "cch", makeIffTag("CACH")),
      nodeState("nodeState", "nds", makeIffTag("NDST")) {
    nodeState.addField("normal", 0);
    nodeState.addField("hasNoEffect", 1);
    nodeState.addField("blocking", 2);
}

TdependNodeVS::~TdependNodeVS() = default;

void TdependNodeVS::appendAttributes(TattributeList& list) {
    list.addAttribute(&message);
    list.addAttribute(&caching);
    list.addAttribute(&nodeState);
}

bool TdependNodeVS::setupDependencies(TdependencyMatrix&) { return true; }

void TdependNodeVS::initializeClass() {
    if (fInitialized) return;
    appendAttributes(fList);
    const unsigned n = fList.count();
    for (unsigned i = 0; i < n; ++i) {
        fList[i]->setIndex(static_cast<int>(i));
        fByName.emplace(fList[i]->name(), i);
        fByName.emplace(fList[i]->shortName(), i);
    }
    TdependencyMatrix m;
    if (!setupDependencies(m)) throw std::logic_error("dependency set-up failed");

    fAffects.assign(n, {});
    fAffected.assign(n, false);
    auto add = [&](int from, int to) {
        auto& v = fAffects[from];
        if (std::find(v.begin(), v.end(), to) == v.end()) v.push_back(to);
        fAffected[to] = true;
    };
    // A compound's dependencies hold for its children both ways: a child's
    // change dirties what the compound dirties, and a dirty compound dirties
    // its children.
    auto expand = [&](const Tattribute* a, auto&& self, std::vector<int>& out) -> void {
        out.push_back(a->index());
        if (auto* c = dynamic_cast<const TattributeCompound*>(a))
            for (Tattribute* ch : c->children()) self(ch, self, out);
    };
    for (const auto& p : m.pairs()) {
        std::vector<int> froms, tos;
        expand(p.from, expand, froms);
        expand(p.to, expand, tos);
        for (int f : froms)
            for (int t : tos) add(f, t);
    }
    fInitialized = true;
}

void TdependNodeVS::cleanupClass() {
    fList = TattributeList();
    fByName.clear();
    fAffects.clear();
    fAffected.clear();
    fInitialized = false;
}

Tattribute* TdependNodeVS::findAttribute(const Tstring& name) const {
    auto it = fByName.find(name);
    return it == fByName.end() ? nullptr : fList[it->second];
}
