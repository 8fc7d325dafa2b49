#include "Host/Dag/Tmodel.h"

#include <algorithm>
#include <memory>

namespace {
std::unique_ptr<Tmodel> gModel;
TdependGraph* gModelGraph = nullptr;
} // namespace

bool wildcardMatch(const std::string& p, const std::string& t) {
    std::size_t pi = 0, ti = 0, star = std::string::npos, mark = 0;
    while (ti < t.size()) {
        if (pi < p.size() && (p[pi] == '?' || p[pi] == t[ti])) {
            ++pi;
            ++ti;
        } else if (pi < p.size() && p[pi] == '*') {
            star = pi++;
            mark = ti;
        } else if (star != std::string::npos) {
            pi = star + 1;
            ti = ++mark;
        } else {
            return false;
        }
    }
    while (pi < p.size() && p[pi] == '*') ++pi;
    return pi == p.size();
}

Tmodel::Tmodel(TdependGraph& graph) : fGraph(graph) {
    fGraph.nodeListener = [this](TdependNode* n, bool added) {
        if (!added) removeFromActiveList(n);
    };
}

Tmodel::~Tmodel() { fGraph.nodeListener = nullptr; }

void Tmodel::setActiveList(std::vector<TdependNode*> nodes) {
    fSelection.clear();
    for (TdependNode* n : nodes) addToActiveList(n);
}

void Tmodel::addToActiveList(TdependNode* n) {
    if (n && !isActive(n)) fSelection.push_back(n);
}

void Tmodel::removeFromActiveList(TdependNode* n) {
    fSelection.erase(std::remove(fSelection.begin(), fSelection.end(), n), fSelection.end());
}

bool Tmodel::isActive(const TdependNode* n) const {
    return std::find(fSelection.begin(), fSelection.end(), n) != fSelection.end();
}

std::vector<TdependNode*> Tmodel::findMatches(const std::string& pattern) const {
    std::string p = pattern;
    if (auto dot = p.find('.'); dot != std::string::npos) p = p.substr(0, dot);
    if (!p.empty() && p[0] == '|') p = p.substr(p.rfind('|') + 1);
    std::vector<TdependNode*> out;
    if (p.find_first_of("*?") == std::string::npos) {
        if (TdependNode* n = fGraph.findNode(p)) out.push_back(n);
        return out;
    }
    for (TdependNode* n : fGraph.nodes())
        if (wildcardMatch(p, n->name())) out.push_back(n);
    return out;
}

Tmodel* TmodelList::activeModel() {
    TdependGraph& g = TdependGraph::current();
    if (!gModel || gModelGraph != &g) {
        gModel.reset();
        gModel = std::make_unique<Tmodel>(g);
        gModelGraph = &g;
    }
    return gModel.get();
}

void TmodelList::reset() {
    gModel.reset();
    gModelGraph = nullptr;
}

int TselectionSnapshot::remember() {
    Tmodel* m = TmodelList::activeModel();
    if (!m) return 1;
    fNodes = m->activeList();
    fNames.clear();
    for (TdependNode* n : fNodes) fNames.push_back(n->name());
    return 0;
}

int TselectionSnapshot::restore() {
    Tmodel* m = TmodelList::activeModel();
    if (!m) return 1;
    // Nodes are found again by name: some may have been deleted and made anew since.
    std::vector<TdependNode*> nodes;
    for (const Tstring& n : fNames)
        if (TdependNode* node = m->graph().findNode(n)) nodes.push_back(node);
    m->setActiveList(nodes);
    return 0;
}
