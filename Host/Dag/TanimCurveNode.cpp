#include "Host/Dag/TanimCurveNode.h"

#include "Host/Data/TdataArrays.h"

#include <cmath>

TDEFINE_NODE(TanimCurveNode, TdnVSTanimCurveNode, TdependNode, "animCurve", "ACRV")

TdnVSTanimCurveNode::TdnVSTanimCurveNode()
    : input("input", "i", makeIffTag("ACIN")), output("output", "o", makeIffTag("ACOU")),
      keys("keys", "ks", makeIffTag("ACKY"), TdataDoubleArray::sClass) {
    output.setWritable(false);
}

void TdnVSTanimCurveNode::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    list.addAttribute(&input);
    list.addAttribute(&output);
    list.addAttribute(&keys);
}

bool TdnVSTanimCurveNode::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    m.attributeAffects(&input, &output);
    m.attributeAffects(&keys, &output);
    return true;
}

bool TanimCurveNode::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    if (plug.attribute() != &vs->output) return TdependNode::computePlug(plug, block);
    // Keys are kept in ticks: whole numbers, so keyed frames interpolate exactly.
    double t = static_cast<double>(block.inputValue(&vs->input).asTime().ticks());
    TdataHandle h = block.outputValue(&vs->output);
    h.set(fCurve.evaluate(t));
    h.setClean();
    return true;
}

namespace {
constexpr int kKeyFields = 4;

Tdata keysData(const TanimCurve& c) {
    auto* letter = new TdataDoubleArray;
    for (const TanimKey& k : c.keys()) {
        letter->array().addLast(k.time);
        letter->array().addLast(k.value);
        letter->array().addLast(static_cast<double>(k.inTangent));
        letter->array().addLast(static_cast<double>(k.outTangent));
    }
    return Tdata(letter);
}

bool isTangentType(double v) {
    return v == static_cast<double>(TtangentType::kLinear) ||
           v == static_cast<double>(TtangentType::kSmooth) ||
           v == static_cast<double>(TtangentType::kStepped);
}
} // namespace

void TanimCurveNode::setCurve(const TanimCurve& c) {
    fCurve = c;
    setAttributeValue(&sVsData()->keys, keysData(fCurve));
    if (isInGraph()) TdependGraph::current().dirtyPlug(Tplug(this, &sVsData()->output));
}

bool TanimCurveNode::setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) {
    if (plug.attribute() != &sVsData()->keys || !context.isNormal())
        return TdependNode::setCachedValue(plug, handle, context);
    const auto* values = handle.data().as<TdataDoubleArray>();
    TanimCurve curve;
    if (values) {
        const TdoubleArray& a = values->array();
        if (a.length() % kKeyFields != 0) return false;
        for (unsigned i = 0; i < a.length(); i += kKeyFields) {
            if (!std::isfinite(a[i]) || !std::isfinite(a[i + 1]) || !isTangentType(a[i + 2]) ||
                !isTangentType(a[i + 3]))
                return false;
            curve.setKey(a[i], a[i + 1], static_cast<TtangentType>(static_cast<int>(a[i + 2])),
                         static_cast<TtangentType>(static_cast<int>(a[i + 3])));
        }
    }
    fCurve = curve;
    return TdependNode::setCachedValue(plug, handle, context);
}
