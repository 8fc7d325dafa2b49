#pragma once
// The time node: its `outTime` is the graph's time (or a timed context's).

#include "Host/Graph/TdependNode.h"

class TdnVSTdnTime : public TdependNodeVS {
public:
    TdnVSTdnTime();
    void appendAttributes(TattributeList& list) override;
    TattributeTime outTime;
};

class TdnTime : public TdependNode {
    TDECLARE_NODE(TdnTime, TdnVSTdnTime)
public:
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    Tplug outTimePlug() { return Tplug(this, &sVsData()->outTime); }
};
