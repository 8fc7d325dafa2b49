#include "Host/SceneCommands/TplugPath.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"

#include <cctype>
#include <cstdlib>

TdependNode* findNodeOrThrow(TdependGraph& graph, const std::string& name) {
    std::string n = name;
    if (!n.empty() && n[0] == '|') n = n.substr(n.rfind('|') + 1);
    TdependNode* node = graph.findNode(n);
    if (!node) throw TplugError("no object matches name: " + name);
    return node;
}

namespace {
// "inputData[3]" -> ("inputData", 3); ("translateX", -1) without brackets.
std::pair<std::string, int> splitIndex(const std::string& part, const std::string& whole) {
    auto open = part.find('[');
    if (open == std::string::npos) return {part, -1};
    auto close = part.find(']', open);
    if (close == std::string::npos || close != part.size() - 1)
        throw TplugError("malformed plug name: " + whole);
    std::string digits = part.substr(open + 1, close - open - 1);
    if (digits.empty() || digits.size() > 9)
        throw TplugError("plug index out of range in " + whole);
    for (char c : digits)
        if (!std::isdigit(static_cast<unsigned char>(c))) throw TplugError("plug index out of range in " + whole);
    long index = std::strtol(digits.c_str(), nullptr, 10);
    if (index >= kMaxMultiIndex) throw TplugError("plug index out of range in " + whole);
    return {part.substr(0, open), static_cast<int>(index)};
}
} // namespace

Tplug parsePlug(TdependGraph& graph, const std::string& text, bool needAttribute) {
    auto dot = text.find('.');
    TdependNode* node = findNodeOrThrow(graph, text.substr(0, dot));
    if (dot == std::string::npos) {
        if (needAttribute) throw TplugError("'" + text + "' names a node, not an attribute: use " + text + ".ATTRIBUTE");
        return Tplug(node, nullptr);
    }
    std::string rest = text.substr(dot + 1);
    Tattribute* attr = nullptr;
    int index = -1;
    std::size_t start = 0;
    while (start <= rest.size()) {
        std::size_t end = rest.find('.', start);
        std::string part = rest.substr(start, end == std::string::npos ? std::string::npos : end - start);
        auto [name, idx] = splitIndex(part, text);
        if (name.empty()) throw TplugError("malformed plug name: " + text);
        Tattribute* next = nullptr;
        if (!attr) {
            next = node->attribute(name);
        } else if (auto* c = dynamic_cast<TattributeCompound*>(attr)) {
            next = c->child(name);
        }
        if (!next) {
            throw TplugError("no attribute '" + name + "' on node '" + node->name() + "' (" + node->typeName() + ")");
        }
        if (idx >= 0) {
            if (!next->isArray()) throw TplugError("'" + next->name() + "' is not a multi attribute: " + text);
            index = idx;
        }
        attr = next;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return Tplug(node, attr, attr->isElementOfArray() ? index : -1);
}

TscriptValue plugValue(const Tplug& plug, const TdgContext& context) {
    TdataBlock* block = plug.node()->makeDataBlock(context, true);
    const Tattribute* a = plug.attribute();
    TdataHandle h = block->inputValue(a, plug.multiIndex());
    if (auto* c = dynamic_cast<const TattributeCompound*>(a); c && c->numericComponents() > 0) {
        std::vector<double> out;
        for (Tattribute* k : c->children()) out.push_back(block->inputValue(k, plug.multiIndex()).asDouble());
        return TscriptValue(out);
    }
    switch (a->type()) {
    case TattrType::Double:
    case TattrType::Float: return TscriptValue(h.asDouble());
    case TattrType::Int16:
    case TattrType::Int32:
    case TattrType::Boolean:
    case TattrType::Byte:
    case TattrType::Enum: return TscriptValue(h.asInt());
    case TattrType::Time: return TscriptValue(h.asTime().valueInThisUnit(kCurrentFrameUnit));
    default: break;
    }
    const Tdata& d = h.data();
    if (auto* x = d.as<TdataDoubleArray>()) return TscriptValue(x->array().vector());
    if (auto* x = d.as<TdataInt32Array>()) {
        std::vector<int> v(x->array().begin(), x->array().end());
        return TscriptValue(v);
    }
    if (auto* x = d.as<TdataVectorArray>()) {
        std::vector<TscriptVector> v;
        v.reserve(x->length());
        for (const T4dDblVector& p : x->array()) v.push_back({p.x, p.y, p.z});
        return TscriptValue(v);
    }
    if (auto* x = d.as<TdataStringArray>()) return TscriptValue(x->array().vector());
    if (auto* x = d.as<TdataString>()) return TscriptValue(x->string());
    if (auto* x = d.as<TdataMatrix>()) {
        std::vector<double> v;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) v.push_back(x->matrix().m[r][c]);
        return TscriptValue(v);
    }
    if (d.isNULL()) return TscriptValue();
    throw TplugError(plug.name() + " holds " + d.letterClass()->name + " data, which has no script value");
}

TplugSnapshot::TplugSnapshot(const Tplug& plug) : fPlug(plug) {
    TdataBlock& b = plug.node()->normalBlock();
    if (plug.attribute()->isElementOfArray() && plug.multiIndex() >= 0)
        fHadElement = b.hasElement(plug.attribute(), plug.multiIndex());
    TdataHandle h = b.outputValue(plug.attribute(), plug.multiIndex());
    fSlot = b.slot(plug.attribute(), plug.multiIndex());
    fVector = h.asVector();
}

void TplugSnapshot::restore() const {
    if (!fHadElement) {
        fPlug.node()->normalBlock().removeElement(fPlug.attribute(), fPlug.multiIndex());
        TdependGraph::current().dirtyDependents(fPlug);
        return;
    }
    TstandaloneValue v(fPlug.attribute());
    v.slot() = fSlot;
    v.slot().dirty = false;
    v.slot().computing = false;
    for (int i = 0; i < 3; ++i) v.slot().components[i] = fVector[i];
    TdataHandle h = v.handle();
    fPlug.node()->setCachedValue(fPlug, h, TdgContext::fsNormal);
}

bool writePlugNumber(const Tplug& plug, double value) {
    TstandaloneValue v(plug.attribute());
    TdataHandle h = v.handle();
    h.set(value);
    return plug.node()->setCachedValue(plug, h, TdgContext::fsNormal);
}

bool writePlugVector(const Tplug& plug, const T4dDblVector& value) {
    TstandaloneValue v(plug.attribute());
    TdataHandle h = v.handle();
    h.set(value);
    return plug.node()->setCachedValue(plug, h, TdgContext::fsNormal);
}

bool writePlugTime(const Tplug& plug, TanimTime value) {
    TstandaloneValue v(plug.attribute());
    TdataHandle h = v.handle();
    h.set(value);
    return plug.node()->setCachedValue(plug, h, TdgContext::fsNormal);
}

bool writePlugData(const Tplug& plug, const Tdata& value) {
    TstandaloneValue v(plug.attribute());
    TdataHandle h = v.handle();
    h.set(value);
    return plug.node()->setCachedValue(plug, h, TdgContext::fsNormal);
}
