#include "GraphTestNodes.h"

TDEFINE_NODE(TtestSum, TdnVSTtestSum, TdependNode, "testSum", "TSUM")
TDEFINE_NODE(TtestAccumulator, TdnVSTtestAccumulator, TdependNode, "testAccumulator", "TACC")

TdnVSTtestSum::TdnVSTtestSum()
    : a("a", "a", makeIffTag("TSAA")), b("b", "b", makeIffTag("TSBB")), sum("sum", "s", makeIffTag("TSSU")),
      inputs("inputs", "in", makeIffTag("TSIN")), total("total", "tot", makeIffTag("TSTO")),
      values("values", "val", makeIffTag("TSVA"), TdataDoubleArray::sClass),
      doubled("doubled", "dbl", makeIffTag("TSDB"), TdataDoubleArray::sClass) {
    inputs.setArray(true);
    sum.setWritable(false);
}

void TdnVSTtestSum::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    for (Tattribute* x : {static_cast<Tattribute*>(&a), static_cast<Tattribute*>(&b), static_cast<Tattribute*>(&sum),
                          static_cast<Tattribute*>(&inputs), static_cast<Tattribute*>(&total),
                          static_cast<Tattribute*>(&values), static_cast<Tattribute*>(&doubled)})
        list.addAttribute(x);
}

bool TdnVSTtestSum::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    m.attributeAffects(&a, &sum);
    m.attributeAffects(&b, &sum);
    m.attributeAffects(&inputs, &total);
    m.attributeAffects(&values, &doubled);
    return true;
}

bool TtestSum::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    if (plug.attribute() == &vs->sum) {
        double s = block.inputValue(&vs->a).asDouble() + block.inputValue(&vs->b).asDouble();
        TdataHandle h = block.outputValue(&vs->sum);
        h.set(s);
        h.setClean();
        return true;
    }
    if (plug.attribute() == &vs->total) {
        double t = 0;
        TmultiHandle mh = block.inputArrayValue(&vs->inputs);
        for (unsigned i = 0; i < mh.elementCount(); ++i) {
            mh.jumpToArrayElement(i);
            t += mh.value().asDouble();
        }
        TdataHandle h = block.outputValue(&vs->total);
        h.set(t);
        h.setClean();
        return true;
    }
    if (plug.attribute() == &vs->doubled) {
        // The in-place protocol: the input letter is shared with `values`, so
        // making it a writer copies it and `values` keeps its numbers.
        Tdata d = block.inputValue(&vs->values).data();
        d.makeWriter();
        if (auto* arr = d.as<TdataDoubleArray>())
            for (double& x : arr->array()) x *= 2;
        d.makeHolder();
        block.outputValue(&vs->doubled).set(d);
        return true;
    }
    return TdependNode::computePlug(plug, block);
}

TdnVSTtestAccumulator::TdnVSTtestAccumulator()
    : currentTime("currentTime", "cti", makeIffTag("TACT")), rate("rate", "r", makeIffTag("TART")),
      value("value", "v", makeIffTag("TAVA")), lastTime("lastTime", "lt", makeIffTag("TALT")) {
    rate.setNativeDefaultData(1.0);
}

void TdnVSTtestAccumulator::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    list.addAttribute(&currentTime);
    list.addAttribute(&rate);
    list.addAttribute(&value);
    list.addAttribute(&lastTime);
}

bool TdnVSTtestAccumulator::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    m.attributeAffects(&currentTime, &value);
    m.attributeAffects(&rate, &value);
    return true;
}

bool TtestAccumulator::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = sVsData();
    if (plug.attribute() != &vs->value) return TdependNode::computePlug(plug, block);
    TanimTime now = block.inputValue(&vs->currentTime).asTime();
    double rate = block.inputValue(&vs->rate).asDouble();
    TdataHandle v = block.outputValue(&vs->value);
    // Only the normal context advances state; another context reads what is there.
    if (block.isNormalContext()) {
        TanimTime last = block.outputValue(&vs->lastTime).asTime();
        double frames = (now - last).valueInThisUnit(kCurrentFrameUnit);
        if (frames > 0) v.set(v.asDouble() + rate * frames);
        TdataHandle lt = block.outputValue(&vs->lastTime);
        lt.set(now);
        lt.setClean();
    }
    v.setClean();
    return true;
}
