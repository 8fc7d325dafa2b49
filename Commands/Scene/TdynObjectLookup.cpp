// Finding particle objects by the names commands are given.

#include "Commands/Scene/TdynObjectLookup.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynStatic.h"

#include "Host/Graph/TdependGraph.h"

#include <cstdlib>

TdynParticleShape* particleShapeNamed(const std::string& text) {
    std::string name = text;
    if (!name.empty() && name[0] == '|') name = name.substr(name.rfind('|') + 1);
    if (!TdependGraph::hasCurrent()) return nullptr;
    TdependNode* n = TdependGraph::current().findNode(name);
    if (auto* p = TdynParticleShape::cast(n)) return p;
    if (auto* dag = TdagObject::cast(n))
        for (TdagObject* s : TdynStatic::getShapes(dag))
            if (auto* p = TdynParticleShape::cast(s)) return p;
    return nullptr;
}

bool splitParticleComponent(const std::string& text, std::string& object, int& index) {
    object = text;
    index = -1;
    const std::size_t dot = text.find(".pt[");
    if (dot == std::string::npos) return true;
    object = text.substr(0, dot);
    const std::size_t close = text.find(']', dot);
    if (close == std::string::npos || close != text.size() - 1) return false;
    const std::string digits = text.substr(dot + 4, close - dot - 4);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return false;
    index = std::atoi(digits.c_str());
    return true;
}
