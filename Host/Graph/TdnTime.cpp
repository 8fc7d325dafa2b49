#include "Host/Graph/TdnTime.h"
#include "Host/Graph/TdependGraph.h"

TDEFINE_NODE(TdnTime, TdnVSTdnTime, TdependNode, "time", "TIME")

TdnVSTdnTime::TdnVSTdnTime() : outTime("outTime", "o", makeIffTag("OTIM")) {
    outTime.setComputeModifies(true);
    outTime.setWritable(false);
    outTime.setStorable(false);
}

void TdnVSTdnTime::appendAttributes(TattributeList& list) {
    TdependNodeVS::appendAttributes(list);
    list.addAttribute(&outTime);
}

bool TdnTime::computePlug(const Tplug& plug, TdataBlock& block) {
    if (plug.attribute() != &sVsData()->outTime) return TdependNode::computePlug(plug, block);
    TdataHandle h = block.outputValue(&sVsData()->outTime);
    h.set(block.context().time());
    h.setClean();
    return true;
}
