#pragma once
// A keyframe curve as a node: `input` (a time, normally from time1.outTime)
// drives `output`. The curve's key times are in ticks.

#include "Host/Anim/TanimCurve.h"
#include "Host/Graph/TdependGraph.h"

class TdnVSTanimCurveNode : public TdependNodeVS {
public:
    TdnVSTanimCurveNode();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeTime input;
    TattributeDouble output;
    // The keys as scene files hold them: time (seconds), value, in and out tangent types, per key.
    TattributeTyped keys;
};

class TanimCurveNode : public TdependNode {
    TDECLARE_NODE(TanimCurveNode, TdnVSTanimCurveNode)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    const TanimCurve& curve() const { return fCurve; }
    // Changes the keys and dirties the output.
    void setCurve(const TanimCurve& c);
    // Keys written from outside (a scene file) replace the curve; malformed ones are refused.
    bool setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) override;

private:
    TanimCurve fCurve;
};
