#include "Fluids/Core/TgridSolver.h"

#include <algorithm>
#include <unordered_map>

#include "Fluids/Core/TgridInterpolator.h"

namespace {
std::unordered_map<std::string, TsolverCreator>& table() {
    static std::unordered_map<std::string, TsolverCreator> t;
    return t;
}
} // namespace

TgridSolver::~TgridSolver() {
    if (interp_) interp_->unref();
}

void TgridSolver::setInterpolator(TgridInterpolator* interp) {
    if (interp == interp_) return;
    if (interp) interp->ref();
    if (interp_) interp_->unref();
    interp_ = interp;
}

void TsolverRegistry::addSolverCreator(const std::string& name, TsolverCreator creator) {
    table()[name] = creator;
}

TgridSolver* TsolverRegistry::newSolver(const std::string& name) {
    auto it = table().find(name);
    return it == table().end() || !it->second ? nullptr : it->second();
}

bool TsolverRegistry::hasSolver(const std::string& name) {
    return table().count(name) != 0;
}

std::vector<std::string> TsolverRegistry::getAllSolvers() {
    std::vector<std::string> names;
    for (const auto& e : table())
        names.push_back(e.first);
    std::sort(names.begin(), names.end());
    return names;
}
