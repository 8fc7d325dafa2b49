#pragma once
// Names one attribute of one node, with the element index of its multi
// attribute (or of the multi compound above it); -1 for none.

#include "Host/Base/Tarray.h"

#include <vector>

class TdependNode;
class Tattribute;
class TdataHandle;
class TdgContext;

class Tplug {
public:
    Tplug() = default;
    Tplug(TdependNode* node, Tattribute* attribute, int index = -1) : fNode(node), fAttr(attribute), fIndex(index) {}

    void reset() { *this = Tplug(); }
    bool isNull() const { return !fNode || !fAttr; }
    TdependNode* node() const { return fNode; }
    Tattribute* attribute() const { return fAttr; }
    void setMultiIndex(int i) { fIndex = i; }
    int multiIndex() const { return fIndex; }
    int logicalIndex() const { return fIndex; }

    bool isDestination() const;
    bool isSource() const;
    // The plug this one reads from (null plug if none), and the plugs it feeds.
    Tplug source() const;
    std::vector<Tplug> destinations() const;
    // Plugs connected to this one, on either side.
    std::vector<Tplug> connectedTo(bool asDestination = true, bool asSource = true) const;
    bool isConnectedTo(const Tplug& other) const;
    unsigned numConnectedChildren() const;
    bool isChildDestination() const;
    // "node.attr", "node.attr[3]", "node.parent[3].child".
    Tstring name() const;
    Tstring partialName() const;
    // Reads the value through the plug's input connection in a context.
    bool evalConnectionValue(bool force, const TdgContext& context, TdataHandle& handle) const;
    void setKeyable(bool on);

    bool operator==(const Tplug& o) const { return fNode == o.fNode && fAttr == o.fAttr && fIndex == o.fIndex; }
    bool operator!=(const Tplug& o) const { return !(*this == o); }
    bool operator<(const Tplug& o) const;

private:
    TdependNode* fNode = nullptr;
    Tattribute* fAttr = nullptr;
    int fIndex = -1;
};
