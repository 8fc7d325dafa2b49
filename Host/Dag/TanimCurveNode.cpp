#include "Host/Dag/TanimCurveNode.h"

TDEFINE_NODE(TanimCurveNode, TdnVSTanimCurveNode, TdependNode, "animCurve", "ACRV")

TdnVSTanimCurveNode::TdnVSTanimCurveNode()
    : input("input", "i", makeIffTag("ACIN")), output("output", "o", makeIffTag("ACOU")) {
    output.setWritable(false);
}

void TdnVSTanimCurveNode::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    list.addAttribute(&input);
    list.addAttribute(&output);
}

bool TdnVSTanimCurveNode::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    m.attributeAffects(&input, &output);
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

void TanimCurveNode::setCurve(const TanimCurve& c) {
    fCurve = c;
    if (isInGraph()) TdependGraph::current().dirtyPlug(Tplug(this, &sVsData()->output));
}
