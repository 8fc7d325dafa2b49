#include "Host/Graph/TdependGraph.h"
#include "Host/Graph/TdnTime.h"
#include "Host/Time/TtimeEvents.h"

#include <algorithm>
#include <cctype>

namespace {
TdependGraph* gCurrent = nullptr;
}

TdependGraph::TdependGraph() {
    if (!gCurrent) gCurrent = this;
}

TdependGraph::~TdependGraph() {
    TdependGraph* previous = gCurrent;
    gCurrent = this; // nodes may ask for the graph while they go
    clear();
    gCurrent = previous == this ? nullptr : previous;
}

TdependGraph& TdependGraph::current() {
    if (!gCurrent) gCurrent = new TdependGraph; // the session's graph, made on first use
    return *gCurrent;
}

bool TdependGraph::hasCurrent() {
    return gCurrent != nullptr;
}
void TdependGraph::setCurrent(TdependGraph* g) {
    gCurrent = g;
}

std::string TdependGraph::uniqueName(const std::string& wanted, const TdependNode* except) const {
    auto taken = [&](const std::string& n) {
        auto it = fByName.find(n);
        return it != fByName.end() && it->second != except;
    };
    if (!wanted.empty() && !taken(wanted)) return wanted;
    std::string base = wanted;
    while (!base.empty() && std::isdigit(static_cast<unsigned char>(base.back())))
        base.pop_back();
    if (base.empty()) base = "node";
    unsigned& next = fNextSuffix[base];
    if (next == 0) next = 1;
    // A name freed below the hint is not reused; names only need to be unique.
    for (unsigned n = next;; ++n) {
        std::string candidate = base + std::to_string(n);
        if (!taken(candidate)) {
            next = n;
            return candidate;
        }
    }
}

TdependNode* TdependGraph::createNode(const std::string& typeName, const std::string& name) {
    const TdependNodeMetaClass* meta = TnodeTypeRegistry::find(typeName);
    if (!meta) throw TgraphError("unknown node type '" + typeName + "'");
    if (meta->metaclass().isAbstract()) throw TgraphError("node type '" + typeName + "' is abstract");
    std::unique_ptr<TdependNode> node(meta->metaclass().construct());
    if (!node) throw TgraphError("could not make a node of type '" + typeName + "'");
    std::string wanted = name.empty() ? typeName + "1" : name;
    return addNode(std::move(node), wanted);
}

TdependNode* TdependGraph::addNode(std::unique_ptr<TdependNode> node, const std::string& name) {
    TdependNode* n = node.get();
    n->setNameInternal(uniqueName(name));
    fByName[n->name()] = n;
    fOrder.push_back(n);
    fOwned.emplace(n, std::move(node));
    n->addToGraph();
    n->postConstructor();
    if (nodeListener) nodeListener(n, true);
    return n;
}

std::unique_ptr<TdependNode> TdependGraph::detachNode(TdependNode* node) {
    // Break every connection first, so the neighbours hear of it.
    std::vector<std::pair<Tplug, Tplug>> links;
    for (auto& [k, src] : node->fInputs)
        links.emplace_back(src, Tplug(node, node->attribute(k.attr), k.index));
    for (auto& [k, dst] : node->fOutputs)
        if (dst.node() != node) // links within the node are among the inputs already
            links.emplace_back(Tplug(node, node->attribute(k.attr), k.index), dst);
    for (auto& [s, d] : links)
        disconnect(s, d);
    node->fDetachedLinks = std::move(links);
    node->aboutToDelete();
    fByName.erase(node->name());
    // Searched from the back: clearing a scene removes the newest first.
    if (auto it = std::find(fOrder.rbegin(), fOrder.rend(), node); it != fOrder.rend())
        fOrder.erase(std::next(it).base());
    if (node == fTimeNode) fTimeNode = nullptr;
    std::unique_ptr<TdependNode> out;
    if (auto it = fOwned.find(node); it != fOwned.end()) {
        out = std::move(it->second);
        fOwned.erase(it);
    }
    for (auto& [id, blocks] : fContextBlocks)
        blocks.erase(node);
    node->removeFromGraph();
    if (nodeListener) nodeListener(node, false);
    return out;
}

void TdependGraph::reattachNode(std::unique_ptr<TdependNode> node) {
    TdependNode* n = node.get();
    n->setNameInternal(uniqueName(n->name()));
    fByName[n->name()] = n;
    fOrder.push_back(n);
    fOwned.emplace(n, std::move(node));
    n->addToGraph();
    if (nodeListener) nodeListener(n, true);
    // Back with the connections it had (the time, its owner ...), where the other end is here too;
    // a node that returns later makes the ones to this node itself.
    std::vector<std::pair<Tplug, Tplug>> links = std::move(n->fDetachedLinks);
    n->fDetachedLinks.clear();
    for (auto& [s, d] : links) {
        if (!fOwned.count(s.node()) || !fOwned.count(d.node()) || !d.source().isNull()) continue;
        try {
            connect(s, d, false);
        } catch (const TgraphError&) {
            // A node that changed while away may refuse; the rest still come back.
        }
    }
}

TdependNode* TdependGraph::findNode(const std::string& name) const {
    auto it = fByName.find(name);
    return it == fByName.end() ? nullptr : it->second;
}

void TdependGraph::renameNode(TdependNode* node, const std::string& name) {
    if (name.empty()) throw TgraphError("a node name cannot be empty");
    for (char c : name)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
            throw TgraphError("'" + name + "' is not a valid node name");
    if (std::isdigit(static_cast<unsigned char>(name[0])))
        throw TgraphError("'" + name + "' is not a valid node name");
    fByName.erase(node->name());
    node->setNameInternal(uniqueName(name, node));
    fByName[node->name()] = node;
}

void TdependGraph::clear() {
    while (!fOrder.empty())
        detachNode(fOrder.back());
    fContextBlocks.clear();
    fTimeNode = nullptr;
}

// ---- connections ----

namespace {
bool isMessageLike(const Tattribute* a) {
    return a->type() == TattrType::Message;
}
bool isDataLike(const Tattribute* a) {
    return a->type() == TattrType::Typed || a->type() == TattrType::Generic;
}
} // namespace

std::string TdependGraph::connectionProblem(const Tplug& src, const Tplug& dst) const {
    const Tattribute* s = src.attribute();
    const Tattribute* d = dst.attribute();
    if (src.node() == dst.node() && s == d && src.multiIndex() == dst.multiIndex())
        return "cannot connect " + src.name() + " to itself";
    if (!s->hasFlag(Tattribute::kReadable)) return src.name() + " cannot be read from";
    if (!d->hasFlag(Tattribute::kWritable) || !d->hasFlag(Tattribute::kConnectable))
        return dst.name() + " cannot be written to";
    if (isMessageLike(s) || isMessageLike(d)) return {};
    auto* sc = asCompound(s);
    auto* dc = asCompound(d);
    if (sc || dc) {
        if (!sc || !dc || sc->children().size() != dc->children().size())
            return "the data types of " + src.name() + " and " + dst.name() + " are not compatible";
        return {};
    }
    if (s->isNumeric() && d->isNumeric()) return {};
    if (isDataLike(s) && isDataLike(d)) {
        // Each side names the letter classes it deals in; one in common is enough.
        if (s->letterClasses().empty() || d->letterClasses().empty()) return {};
        for (const TletterClass* a : s->letterClasses())
            for (const TletterClass* b : d->letterClasses())
                if (a->derivesFrom(*b) || b->derivesFrom(*a)) return {};
    }
    return "the data types of " + src.name() + " and " + dst.name() + " are not compatible";
}

void TdependGraph::connect(const Tplug& src, const Tplug& dst, bool force) {
    if (src.isNull() || dst.isNull()) throw TgraphError("cannot connect an empty plug");
    std::string problem = connectionProblem(src, dst);
    if (!problem.empty()) throw TgraphError(problem);
    if (src.attribute()->isArray() && src.multiIndex() < 0)
        throw TgraphError(src.name() + " is a multi attribute: name an element, as " + src.name() + "[0]");
    if (dst.attribute()->isArray() && dst.multiIndex() < 0)
        throw TgraphError(dst.name() + " is a multi attribute: name an element, as " + dst.name() + "[0]");

    auto* sc = asCompound(src.attribute());
    auto* dc = asCompound(dst.attribute());
    if (sc && dc && !isMessageLike(src.attribute())) {
        // Compounds connect child by child.
        for (std::size_t i = 0; i < sc->children().size(); ++i)
            connect(Tplug(src.node(), sc->children()[i], src.multiIndex()),
                    Tplug(dst.node(), dc->children()[i], dst.multiIndex()), force);
        return;
    }

    Tplug old = dst.source();
    if (old == src) return;
    if (!old.isNull()) {
        if (!force) throw TgraphError(dst.name() + " already has an input from " + old.name());
        disconnect(old, dst);
    }
    Tstring why;
    if (!src.node()->legalConnection(src, dst, true, why) ||
        !dst.node()->legalConnection(dst, src, false, why))
        throw TgraphError(why.empty() ? "connection " + src.name() + " -> " + dst.name() + " refused" : why);

    // Elements exist on both sides once connected.
    src.node()->normalBlock().slot(src.attribute(), src.multiIndex());
    dst.node()->normalBlock().slot(dst.attribute(), dst.multiIndex());
    dst.node()->fInputs[{dst.attribute()->index(), dst.multiIndex()}] = src;
    src.node()->fOutputs.emplace(TdependNode::PlugKey{src.attribute()->index(), src.multiIndex()}, dst);
    src.node()->connectionMade(src, dst, true);
    dst.node()->connectionMade(dst, src, false);
    dirtyPlug(dst);
}

void TdependGraph::disconnect(const Tplug& src, const Tplug& dst) {
    auto* sc = asCompound(src.attribute());
    auto* dc = asCompound(dst.attribute());
    if (sc && dc && !isMessageLike(src.attribute()) && sc->children().size() == dc->children().size()) {
        for (std::size_t i = 0; i < sc->children().size(); ++i)
            disconnect(Tplug(src.node(), sc->children()[i], src.multiIndex()),
                       Tplug(dst.node(), dc->children()[i], dst.multiIndex()));
        return;
    }
    auto& in = dst.node()->fInputs;
    auto it = in.find({dst.attribute()->index(), dst.multiIndex()});
    if (it == in.end() || it->second != src)
        throw TgraphError(src.name() + " is not connected to " + dst.name());
    if (!src.node()->legalDisconnection(src, dst, true) || !dst.node()->legalDisconnection(dst, src, false))
        throw TgraphError("disconnection " + src.name() + " -> " + dst.name() + " refused");
    in.erase(it);
    auto& out = src.node()->fOutputs;
    auto range = out.equal_range({src.attribute()->index(), src.multiIndex()});
    for (auto o = range.first; o != range.second; ++o)
        if (o->second == dst) {
            out.erase(o);
            break;
        }
    // The value the connection brought stays, unless the attribute says otherwise.
    TdataBlock& db = dst.node()->normalBlock();
    switch (dst.attribute()->disconnectOption()) {
    case TdisconnectOption::kReset: {
        TvalueSlot& s = db.slot(dst.attribute(), dst.multiIndex());
        s.number = dst.attribute()->defaultNumber();
        s.data = dst.attribute()->defaultData();
        break;
    }
    case TdisconnectOption::kDelete:
        db.removeElement(dst.attribute(), dst.multiIndex());
        break;
    case TdisconnectOption::kNothing:
        break;
    }
    src.node()->connectionBroken(src, dst, true);
    dst.node()->connectionBroken(dst, src, false);
    if (dst.node()->isInGraph() &&
        db.hasElement(dst.attribute(), dst.multiIndex()) == dst.attribute()->isElementOfArray())
        dirtyDependents(dst);
}

// ---- dirty propagation ----

void TdependGraph::queueDirty(const Tplug& plug) {
    fDirtyQueue.push_back(plug);
}

void TdependGraph::queueDestinations(const Tplug& plug) {
    // Straight from the node's table: this runs for every dirtied plug.
    const auto& out = plug.node()->fOutputs;
    if (out.empty()) return;
    auto range = out.equal_range(TdependNode::PlugKey{plug.attribute()->index(), plug.multiIndex()});
    for (auto it = range.first; it != range.second; ++it)
        queueDirty(it->second);
}

void TdependGraph::dirtyPlug(const Tplug& plug) {
    if (!TdependNode::fsDirtyPropagation) return;
    queueDirty(plug);
    propagate();
}

void TdependGraph::dirtyDependents(const Tplug& plug) {
    if (!TdependNode::fsDirtyPropagation) return;
    TdependNode* node = plug.node();
    TmsgDirty msg(plug);
    node->setDependentsDirty(msg);
    queueDestinations(plug);
    if (auto* c = asCompound(plug.attribute()))
        for (Tattribute* k : c->children()) {
            Tplug kp(node, k, plug.multiIndex());
            TmsgDirty km(kp);
            node->setDependentsDirty(km);
            queueDestinations(kp);
        }
    propagate();
}

void TdependGraph::propagate() {
    // One propagation at a time: nested requests only add to the queue.
    if (fPropagating) return;
    fPropagating = true;
    while (!fDirtyQueue.empty()) {
        Tplug p = fDirtyQueue.front();
        fDirtyQueue.pop_front();
        TdependNode* node = p.node();
        if (!node || !node->isInGraph() || node->attributeIndex(p.attribute()) < 0) continue;
        TvalueSlot& s = node->normalBlock().slot(p.attribute(), p.multiIndex());
        if (s.dirty) continue;
        s.dirty = true;
        TmsgDirty msg(p);
        node->setDirty(msg);
        node->setDependentsDirty(msg);
        queueDestinations(p);
        if (auto* c = asCompound(p.attribute()))
            for (Tattribute* k : c->children())
                queueDirty(Tplug(node, k, p.multiIndex()));
    }
    fPropagating = false;
}

// ---- time ----

TdnTime* TdependGraph::timeNode() {
    if (!fTimeNode) {
        if (auto* n = findNode("time1"); n && TdnTime::cast(n))
            fTimeNode = TdnTime::cast(n);
        else
            fTimeNode = TdnTime::cast(createNode("time", "time1"));
    }
    return fTimeNode;
}

void TdependGraph::setTime(TanimTime t, bool update) {
    fTime = t;
    TdnTime* tn = timeNode();
    dirtyPlug(tn->outTimePlug());
    TtimeEvents::timeChanged().send();
    if (update) refreshDisplay();
}

void TdependGraph::refreshDisplay() {
    // Nodes may be added while pulling (a simulation creating its helpers).
    std::vector<TdependNode*> order = fOrder;
    for (TdependNode* n : order)
        if (n->isInGraph()) n->doPreDraw();
}

TdataBlock* TdependGraph::contextBlock(const TdgContext& ctx, TdependNode* node, bool create) {
    auto& blocks = fContextBlocks[ctx.id()];
    auto it = blocks.find(node);
    if (it != blocks.end()) return it->second.get();
    if (!create) return nullptr;
    auto block = std::make_unique<TdataBlock>(*node, ctx);
    block->copyValuesFrom(node->normalBlock());
    block->markAllComputedDirty();
    TdataBlock* b = block.get();
    blocks.emplace(node, std::move(block));
    return b;
}

void TdependGraph::releaseContext(const TdgContext& ctx) {
    fContextBlocks.erase(ctx.id());
}
