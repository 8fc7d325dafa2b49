#pragma once
// Messages a node is sent: a plug turned dirty, or a request for a plug's value.

#include "Host/Graph/Tplug.h"

class TdataHandle;
class TdgContext;

class TmsgDirty {
public:
    explicit TmsgDirty(const Tplug& plug) : fPlug(plug) {}
    const Tplug& plug() const { return fPlug; }
    // Marks the plug dirty and spreads the mark along dependencies and connections.
    void send();

private:
    Tplug fPlug;
};

class TmsgPlugValue {
public:
    TmsgPlugValue(const Tplug& plug, TdataHandle& handle, const TdgContext& context)
        : fPlug(plug), fHandle(handle), fContext(context) {}
    // Evaluates the plug in the context into the handle; false if it could not.
    bool send();

private:
    Tplug fPlug;
    TdataHandle& fHandle;
    const TdgContext& fContext;
};
