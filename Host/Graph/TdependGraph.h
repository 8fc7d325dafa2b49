#pragma once
// The dependency graph: the nodes by name, their connections, the clock, and
// the spreading of dirty marks.

#include "Host/Graph/TdependNode.h"
#include "Host/Time/TanimTime.h"

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class TdnTime;

// Why a graph operation failed, in words for the user.
class TgraphError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class TdependGraph {
public:
    TdependGraph();
    ~TdependGraph();
    TdependGraph(const TdependGraph&) = delete;
    TdependGraph& operator=(const TdependGraph&) = delete;

    // The current graph (one per session; tests may make their own and make it current).
    static TdependGraph& current();
    static bool hasCurrent();
    static void setCurrent(TdependGraph* g);

    static void registerNodeType(TdependNodeMetaClass* meta);

    // Nodes. createNode names the node `name` (made unique) or after its type.
    TdependNode* createNode(const std::string& typeName, const std::string& name = {});
    // Puts a node made elsewhere into the graph under a unique form of `name`.
    TdependNode* addNode(std::unique_ptr<TdependNode> node, const std::string& name);
    // Takes a node out of the graph (breaking its connections) and hands it back,
    // so that undo can put it in again.
    std::unique_ptr<TdependNode> detachNode(TdependNode* node);
    void reattachNode(std::unique_ptr<TdependNode> node);
    TdependNode* findNode(const std::string& name) const;
    std::string uniqueName(const std::string& wanted, const TdependNode* except = nullptr) const;
    void renameNode(TdependNode* node, const std::string& name);
    const std::vector<TdependNode*>& nodes() const { return fOrder; }
    // Removes every node (a new scene).
    void clear();

    // Connections. `force` replaces an existing input of the destination.
    void connect(const Tplug& src, const Tplug& dst, bool force = false);
    void disconnect(const Tplug& src, const Tplug& dst);
    // Compatibility check without connecting; empty when fine.
    std::string connectionProblem(const Tplug& src, const Tplug& dst) const;

    // Dirty marks: marks the plug dirty in the normal block and spreads it
    // through affects and connections.
    void dirtyPlug(const Tplug& plug);
    // Spreads from a plug whose value was just written (the plug stays clean).
    void dirtyDependents(const Tplug& plug);
    // Queues a plug to be dirtied by the current propagation.
    void queueDirty(const Tplug& plug);

    // Time.
    TanimTime time() const { return fTime; }
    static TanimTime sTime() { return current().time(); }
    static void sSetTime(TanimTime t) { current().setTime(t, true); }
    // Moves the clock; with `update`, pulls what the display would draw.
    void setTime(TanimTime t, bool update = true);
    TdnTime* timeNode();
    // What a viewport refresh pulls: the draw outputs of every visible shape.
    void refreshDisplay();

    // Blocks of non-normal contexts, dropped with their context.
    TdataBlock* contextBlock(const TdgContext& ctx, TdependNode* node, bool create);
    void releaseContext(const TdgContext& ctx);

    // Called with each node added or removed (the selection forgets removed nodes).
    std::function<void(TdependNode*, bool added)> nodeListener;

private:
    void propagate();
    void queueDestinations(const Tplug& plug);

    std::unordered_map<std::string, TdependNode*> fByName;
    std::vector<TdependNode*> fOrder;
    std::unordered_map<TdependNode*, std::unique_ptr<TdependNode>> fOwned;
    // Next number to try per name stem, so that making many "transform1",
    // "transform2" ... nodes is not quadratic. Only a hint: names are still checked.
    mutable std::unordered_map<std::string, unsigned> fNextSuffix;
    std::deque<Tplug> fDirtyQueue;
    bool fPropagating = false;
    TanimTime fTime;
    TdnTime* fTimeNode = nullptr;
    std::map<std::uint64_t, std::map<TdependNode*, std::unique_ptr<TdataBlock>>> fContextBlocks;
};
