#include "Host/Graph/Tplug.h"
#include "Host/Graph/TdependGraph.h"

#include <tuple>

bool Tplug::isDestination() const { return !source().isNull(); }

bool Tplug::isSource() const { return !destinations().empty(); }

Tplug Tplug::source() const {
    if (isNull()) return {};
    return fNode->inputSource(fAttr, fIndex);
}

std::vector<Tplug> Tplug::destinations() const {
    std::vector<Tplug> out;
    if (isNull()) return out;
    auto range = fNode->outputConnections().equal_range(TdependNode::PlugKey{fAttr->index(), fIndex});
    for (auto it = range.first; it != range.second; ++it) out.push_back(it->second);
    return out;
}

std::vector<Tplug> Tplug::connectedTo(bool asDestination, bool asSource) const {
    std::vector<Tplug> out;
    if (asDestination) {
        Tplug s = source();
        if (!s.isNull()) out.push_back(s);
    }
    if (asSource)
        for (const Tplug& d : destinations()) out.push_back(d);
    return out;
}

bool Tplug::isConnectedTo(const Tplug& other) const {
    for (const Tplug& p : connectedTo()) if (p == other) return true;
    return false;
}

unsigned Tplug::numConnectedChildren() const {
    unsigned n = 0;
    if (auto* c = dynamic_cast<TattributeCompound*>(fAttr))
        for (Tattribute* k : c->children())
            if (!Tplug(fNode, k, fIndex).connectedTo().empty()) ++n;
    return n;
}

bool Tplug::isChildDestination() const {
    if (auto* c = dynamic_cast<TattributeCompound*>(fAttr))
        for (Tattribute* k : c->children())
            if (Tplug(fNode, k, fIndex).isDestination()) return true;
    return false;
}

Tstring Tplug::partialName() const {
    if (isNull()) return {};
    // The index goes after the multi attribute, which may be this one or a parent.
    const Tattribute* root = fAttr->arrayAncestor();
    Tstring out;
    std::vector<const Tattribute*> chain;
    for (const Tattribute* a = fAttr; a; a = a->parent()) chain.insert(chain.begin(), a);
    // Numeric compound children read by their own name ("translateX").
    bool first = true;
    for (const Tattribute* a : chain) {
        bool skip = a != fAttr && dynamic_cast<const TattributeNumericCompound*>(a) && a != root;
        if (skip) continue;
        if (!first) out += ".";
        out += a->name();
        if (a == root && fIndex >= 0) out += "[" + std::to_string(fIndex) + "]";
        first = false;
    }
    return out;
}

Tstring Tplug::name() const {
    if (isNull()) return {};
    return fNode->name() + "." + partialName();
}

bool Tplug::evalConnectionValue(bool, const TdgContext& context, TdataHandle& handle) const {
    Tplug s = source();
    if (s.isNull()) return false;
    TdataBlock* b = s.node()->makeDataBlock(context, true);
    handle = b->inputValue(s.attribute(), s.multiIndex());
    return handle.isValid();
}

void Tplug::setKeyable(bool on) {
    if (fAttr) fAttr->setKeyable(on);
}

bool Tplug::operator<(const Tplug& o) const {
    return std::tie(fNode, fAttr, fIndex) < std::tie(o.fNode, o.fAttr, o.fIndex);
}
