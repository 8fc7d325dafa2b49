#include "Host/Graph/TdgContext.h"
#include "Host/Graph/TdependGraph.h"

namespace {
std::uint64_t gNextContextId = 1;
}

const TdgContext TdgContext::fsNormal(0, false, TanimTime());

TdgContext::~TdgContext() = default;

TanimTime TdgContext::time() const {
    if (!fTimed && TdependGraph::hasCurrent()) return TdependGraph::current().time();
    return fTime;
}

TdgContextTimed::TdgContextTimed(TanimTime t) : TdgContext(gNextContextId++, true, t) {}

TdgContextTimed::~TdgContextTimed() {
    if (TdependGraph::hasCurrent()) TdependGraph::current().releaseContext(*this);
}
