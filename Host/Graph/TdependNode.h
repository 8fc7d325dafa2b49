#pragma once
// Base of all graph nodes.

#include "Host/Graph/TdataBlock.h"
#include "Host/Graph/TdependNodeVS.h"
#include "Host/Graph/Tmetaclass.h"
#include "Host/Graph/TmsgDirty.h"
#include "Host/Graph/Tplug.h"

#include <functional>
#include <map>
#include <memory>
#include <vector>

class TdependGraph;

// Where a dynamic attribute belongs.
enum class TattrClass { kLocalDynamic, kNormal };

class TdependNode {
public:
    TdependNode();
    virtual ~TdependNode();
    TdependNode(const TdependNode&) = delete;
    TdependNode& operator=(const TdependNode&) = delete;

    static Tmetaclass& sMetaclass();
    static TdependNodeVS* sVsData();
    virtual const char* typeName() const;
    virtual std::uint32_t iffTag() const;
    virtual TdependNodeVS* vsData() const;
    virtual const Tmetaclass& typeof() const;
    bool isA(const Tmetaclass& m) const { return typeof().derivesFrom(m); }
    bool mpSafe() const { return fMpSafe; }

    const Tstring& name() const { return fName; }
    // Renaming goes through the graph so that names stay unique.
    void setNameInternal(const Tstring& n) { fName = n; }
    bool isInGraph() const { return fInGraph; }

    // Attributes, static and dynamic.
    unsigned attributeCount() const;
    Tattribute* attribute(unsigned index) const;
    Tattribute* attribute(const Tstring& name) const;
    int attributeIndex(const Tattribute* attr) const;
    bool hasAttribute(const Tattribute* attr) const { return attributeIndex(attr) >= 0; }
    std::vector<Tattribute*> localDynamicAttrs() const;
    // The node takes ownership. False if the name is taken.
    virtual bool addAttribute(std::unique_ptr<Tattribute> attr, TattrClass cls = TattrClass::kLocalDynamic);
    // Takes a dynamic attribute (and its children) off the node and gives it
    // back, so that undo can put it on again.
    virtual std::unique_ptr<Tattribute> removeAttribute(Tattribute* attr,
                                                        TattrClass cls = TattrClass::kLocalDynamic);

    // Evaluation. Returns true if it computed the attribute; a class that does
    // not know the attribute calls its base.
    virtual bool computePlug(const Tplug& plug, TdataBlock& block);
    virtual bool vectorComputePlug(const Tplug& plug, TdataBlock& block, int first, int count);
    // A value written from outside (script, file, connection). Stores it and
    // dirties what depends on it. Overriding it is how a node reacts at once.
    virtual bool setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context);
    // Stores without the further processing.
    bool stuffCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context);
    virtual bool getCachedValue(const Tplug& plug, TdataHandle& handle, const TdgContext& context);
    virtual bool validateAndSetValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context);

    virtual void setDirty(TmsgDirty& msg);
    // Pushes the dirty mark to what the plug's attribute affects.
    virtual void setDependentsDirty(TmsgDirty& msg);

    virtual void connectionMade(const Tplug& plug, const Tplug& other, bool asSource);
    virtual void connectionBroken(const Tplug& plug, const Tplug& other, bool asSource);
    // Veto: false refuses the connection, with `why` saying so when set.
    virtual bool legalConnection(const Tplug& plug, const Tplug& other, bool asSource, Tstring& why) const;
    virtual bool legalDisconnection(const Tplug& plug, const Tplug& other, bool asSource) const;
    virtual Tattribute* passThrough(const Tplug& plug) const;

    // Pull (computing if dirty) or write a value from inside the node, normal context.
    bool getAttributeValue(const Tattribute* attr, double& value, int element = -1);
    bool getAttributeValue(const Tattribute* attr, Tdata& value, int element = -1);
    bool getAttributeValue(const Tattribute* attr, TanimTime& value, int element = -1);
    bool getAttributeValue(const Tattribute* attr, T4dDblVector& value, int element = -1);
    // Stores and leaves the value clean (no dirty propagation).
    bool setAttributeValue(const Tattribute* attr, double value, int element = -1);
    bool setAttributeValue(const Tattribute* attr, const Tdata& value, int element = -1);
    bool setAttributeValue(const Tattribute* attr, TanimTime value, int element = -1);

    // The block of a context: the normal one, or one made for a timed context.
    TdataBlock* getOtherCache(const TdgContext& context) { return makeDataBlock(context, false); }
    TdataBlock* makeDataBlock(const TdgContext& context, bool create = true);
    TdataBlock& normalBlock() { return *fNormalBlock; }

    virtual bool shouldBeWritten(const Tplug& plug) const;

    // Lifecycle.
    virtual void addToGraph();
    virtual void removeFromGraph();
    virtual void destroyNode() {}
    virtual void duplicateDone() {}
    virtual void aboutToDelete() {}
    // Called once, after the node is made and named and its block exists.
    virtual void postConstructor() {}
    // What a display refresh pulls from this node (nothing for plain nodes).
    virtual void doPreDraw() {}

    // Subscribers to this node's dirty messages.
    using ClientHook = std::function<void(const Tplug&)>;
    int addClientHook(ClientHook hook);
    void removeClientHook(int id);

    // Global switch: false while dirty propagation is off.
    static bool fsDirtyPropagation;

    // Connections (kept by the graph through these).
    struct PlugKey {
        int attr;
        int index;
        bool operator<(const PlugKey& o) const { return attr != o.attr ? attr < o.attr : index < o.index; }
    };
    const std::map<PlugKey, Tplug>& inputConnections() const { return fInputs; }
    const std::multimap<PlugKey, Tplug>& outputConnections() const { return fOutputs; }
    Tplug inputSource(const Tattribute* attr, int index) const;

    // Number of computePlug calls that did compute, for tests and statistics.
    std::uint64_t computeCount() const { return fComputeCount; }

protected:
    bool fMpSafe = false;

private:
    friend class TdependGraph;
    friend class TdataBlock;
    void notifyClients(const Tplug& p);

    Tstring fName;
    bool fInGraph = false;
    std::unique_ptr<TdataBlock> fNormalBlock;
    std::vector<Tattribute*> fDynamic; // by index past the static ones; null where removed
    std::vector<std::unique_ptr<Tattribute>> fOwnedDynamic; // roots of the dynamic attributes
    std::map<PlugKey, Tplug> fInputs;
    std::multimap<PlugKey, Tplug> fOutputs;
    std::map<int, ClientHook> fHooks;
    // The connections broken when the node was taken out of its graph, made again when it returns.
    std::vector<std::pair<Tplug, Tplug>> fDetachedLinks;
    int fNextHook = 1;
    std::uint64_t fComputeCount = 0;
};
