#include "Host/Graph/TmsgDirty.h"
#include "Host/Graph/TdependGraph.h"

void TmsgDirty::send() { TdependGraph::current().dirtyPlug(fPlug); }

bool TmsgPlugValue::send() {
    if (fPlug.isNull()) return false;
    TdataBlock* b = fPlug.node()->makeDataBlock(fContext, true);
    if (!b) return false;
    fHandle = b->inputValue(fPlug.attribute(), fPlug.multiIndex());
    return fHandle.isValid();
}
