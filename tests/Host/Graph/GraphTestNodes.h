#pragma once
// Small node types for exercising the graph: a summing node and an
// accumulator that keeps state across time like a simulation does.

#include "Host/Graph/TdependGraph.h"
#include "Host/Graph/TdnTime.h"

class TdnVSTtestSum : public TdependNodeVS {
public:
    TdnVSTtestSum();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeDouble a, b, sum;
    TattributeDouble inputs;   // multi
    TattributeDouble total;    // sum of the multi
    TattributeTyped values;    // a double array letter, passed through to `doubled`
    TattributeTyped doubled;
};

class TtestSum : public TdependNode {
    TDECLARE_NODE(TtestSum, TdnVSTtestSum)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
};

class TdnVSTtestAccumulator : public TdependNodeVS {
public:
    TdnVSTtestAccumulator();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeTime currentTime;
    TattributeDouble rate;
    TattributeDouble value; // advances by rate per frame in the normal context only
    TattributeTime lastTime;
};

class TtestAccumulator : public TdependNode {
    TDECLARE_NODE(TtestAccumulator, TdnVSTtestAccumulator)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
};
