#include "Host/Graph/TdependNode.h"
#include "Host/Graph/TdependGraph.h"

bool TdependNode::fsDirtyPropagation = true;

Tmetaclass& TdependNode::sMetaclass() {
    static Tmetaclass m("dependNode", sizeof(TdependNode), nullptr, makeIffTag("DEPN"), nullptr, 0);
    return m;
}

TdependNodeVS* TdependNode::sVsData() {
    static TdependNodeVS* vs = [] {
        auto* v = new TdependNodeVS;
        v->initializeClass();
        return v;
    }();
    return vs;
}

TdependNode::TdependNode() = default;
TdependNode::~TdependNode() = default;

const char* TdependNode::typeName() const { return "dependNode"; }
std::uint32_t TdependNode::iffTag() const { return makeIffTag("DEPN"); }
TdependNodeVS* TdependNode::vsData() const { return sVsData(); }
const Tmetaclass& TdependNode::typeof() const { return sMetaclass(); }

unsigned TdependNode::attributeCount() const {
    return vsData()->attributeCount() + static_cast<unsigned>(fDynamic.size());
}

Tattribute* TdependNode::attribute(unsigned i) const {
    const unsigned n = vsData()->attributeCount();
    if (i < n) return vsData()->attribute(i);
    i -= n;
    return i < fDynamic.size() ? fDynamic[i] : nullptr;
}

Tattribute* TdependNode::attribute(const Tstring& name) const {
    if (Tattribute* a = vsData()->findAttribute(name)) return a;
    for (Tattribute* d : fDynamic)
        if (d && d->hasName(name)) return d;
    return nullptr;
}

int TdependNode::attributeIndex(const Tattribute* attr) const {
    if (!attr) return -1;
    int i = attr->index();
    return (i >= 0 && static_cast<unsigned>(i) < attributeCount() && attribute(i) == attr) ? i : -1;
}

std::vector<Tattribute*> TdependNode::localDynamicAttrs() const {
    std::vector<Tattribute*> out;
    for (Tattribute* d : fDynamic)
        if (d) out.push_back(d);
    return out;
}

namespace {
void collectTree(Tattribute* a, std::vector<Tattribute*>& out) {
    out.push_back(a);
    if (auto* c = asCompound(a))
        for (Tattribute* k : c->children()) collectTree(k, out);
}
} // namespace

bool TdependNode::addAttribute(std::unique_ptr<Tattribute> attr, TattrClass) {
    if (!attr) return false;
    std::vector<Tattribute*> all;
    collectTree(attr.get(), all);
    for (Tattribute* a : all)
        if (attribute(a->name()) || attribute(a->shortName())) return false;
    // A compound brings its children along; they follow it in the list.
    for (Tattribute* a : all) {
        a->setFlag(Tattribute::kDynamic);
        fDynamic.push_back(a);
        a->setIndex(static_cast<int>(vsData()->attributeCount() + fDynamic.size() - 1));
    }
    fOwnedDynamic.push_back(std::move(attr));
    return true;
}

std::unique_ptr<Tattribute> TdependNode::removeAttribute(Tattribute* attr, TattrClass) {
    for (auto it = fOwnedDynamic.begin(); it != fOwnedDynamic.end(); ++it) {
        if (it->get() != attr) continue;
        std::vector<Tattribute*> all;
        collectTree(attr, all);
        TdependGraph* g = TdependGraph::hasCurrent() ? &TdependGraph::current() : nullptr;
        for (Tattribute* a : all) {
            // Break the connections of every element of the attribute.
            if (g) {
                std::vector<std::pair<Tplug, Tplug>> links;
                for (auto& [k, src] : fInputs)
                    if (k.attr == a->index()) links.emplace_back(src, Tplug(this, a, k.index));
                for (auto& [k, dst] : fOutputs)
                    if (k.attr == a->index()) links.emplace_back(Tplug(this, a, k.index), dst);
                for (auto& [s, d] : links) g->disconnect(s, d);
            }
            const unsigned slot = static_cast<unsigned>(a->index()) - vsData()->attributeCount();
            if (slot < fDynamic.size()) fDynamic[slot] = nullptr;
            a->setIndex(-1);
        }
        std::unique_ptr<Tattribute> out = std::move(*it);
        fOwnedDynamic.erase(it);
        return out;
    }
    return nullptr;
}

bool TdependNode::computePlug(const Tplug&, TdataBlock&) { return false; }

bool TdependNode::vectorComputePlug(const Tplug& plug, TdataBlock& block, int first, int count) {
    bool any = false;
    for (int i = first; i < first + count; ++i) {
        Tplug p(plug.node(), plug.attribute(), i);
        any = computePlug(p, block) || any;
    }
    return any;
}

bool TdependNode::stuffCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) {
    TdataBlock* block = makeDataBlock(context, true);
    if (!block) return false;
    const Tattribute* a = plug.attribute();
    TdataHandle out = block->outputValue(a, plug.multiIndex());
    if (auto* c = asCompound(a); c && c->numericComponents() > 0) {
        out.set(handle.asVector());
    } else if (a->type() == TattrType::Time) {
        out.set(handle.asTime());
    } else if (a->isNumeric()) {
        out.set(a->clampNumber(handle.asDouble()));
    } else {
        out.set(handle.data());
    }
    out.setClean();
    return true;
}

bool TdependNode::setCachedValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) {
    if (!stuffCachedValue(plug, handle, context)) return false;
    if (context.isNormal() && TdependGraph::hasCurrent()) TdependGraph::current().dirtyDependents(plug);
    return true;
}

bool TdependNode::getCachedValue(const Tplug& plug, TdataHandle& handle, const TdgContext& context) {
    TdataBlock* block = makeDataBlock(context, true);
    if (!block) return false;
    handle = block->inputValue(plug.attribute(), plug.multiIndex());
    return handle.isValid();
}

bool TdependNode::validateAndSetValue(const Tplug& plug, const TdataHandle& handle, const TdgContext& context) {
    const Tattribute* a = plug.attribute();
    if (!a->hasFlag(Tattribute::kWritable)) return false;
    if ((a->type() == TattrType::Typed || a->type() == TattrType::Generic) && !handle.data().isNULL() &&
        !a->acceptsLetter(handle.data().letterClass()))
        return false;
    return setCachedValue(plug, handle, context);
}

void TdependNode::setDirty(TmsgDirty& msg) { notifyClients(msg.plug()); }

void TdependNode::setDependentsDirty(TmsgDirty& msg) {
    const Tplug& p = msg.plug();
    const Tattribute* a = p.attribute();
    TdependGraph& g = TdependGraph::current();
    TdependNodeVS* vs = vsData();
    // A child's change is a change of its compound too.
    if (TattributeCompound* parent = a->parent()) {
        TvalueSlot& ps = fNormalBlock->slot(parent, p.multiIndex());
        if (!ps.dirty) g.queueDirty(Tplug(this, parent, parent->isElementOfArray() ? p.multiIndex() : -1));
    }
    if (a->index() < 0 || static_cast<unsigned>(a->index()) >= vs->attributeCount()) return;
    for (int to : vs->affects(a->index())) {
        Tattribute* t = vs->attribute(to);
        if (t->isElementOfArray()) {
            // Every element of a multi output turns dirty.
            for (int idx : fNormalBlock->elementIndices(t)) g.queueDirty(Tplug(this, t, idx));
            // The array as a whole too, so that a later element starts dirty.
            g.queueDirty(Tplug(this, t, -1));
        } else {
            g.queueDirty(Tplug(this, t, -1));
        }
    }
}

void TdependNode::connectionMade(const Tplug&, const Tplug&, bool) {}
void TdependNode::connectionBroken(const Tplug&, const Tplug&, bool) {}

bool TdependNode::legalConnection(const Tplug&, const Tplug&, bool, Tstring&) const { return true; }
bool TdependNode::legalDisconnection(const Tplug&, const Tplug&, bool) const { return true; }
Tattribute* TdependNode::passThrough(const Tplug&) const { return nullptr; }

bool TdependNode::getAttributeValue(const Tattribute* attr, double& value, int element) {
    if (attributeIndex(attr) < 0) return false;
    value = fNormalBlock->inputValue(attr, element).asDouble();
    return true;
}
bool TdependNode::getAttributeValue(const Tattribute* attr, Tdata& value, int element) {
    if (attributeIndex(attr) < 0) return false;
    value = fNormalBlock->inputValue(attr, element).data();
    return true;
}
bool TdependNode::getAttributeValue(const Tattribute* attr, TanimTime& value, int element) {
    if (attributeIndex(attr) < 0) return false;
    value = fNormalBlock->inputValue(attr, element).asTime();
    return true;
}
bool TdependNode::getAttributeValue(const Tattribute* attr, T4dDblVector& value, int element) {
    if (attributeIndex(attr) < 0) return false;
    value = fNormalBlock->inputValue(attr, element).asVector();
    return true;
}

bool TdependNode::setAttributeValue(const Tattribute* attr, double value, int element) {
    if (attributeIndex(attr) < 0) return false;
    TdataHandle h = fNormalBlock->outputValue(attr, element);
    h.set(value);
    h.setClean();
    return true;
}
bool TdependNode::setAttributeValue(const Tattribute* attr, const Tdata& value, int element) {
    if (attributeIndex(attr) < 0) return false;
    fNormalBlock->outputValue(attr, element).set(value);
    return true;
}
bool TdependNode::setAttributeValue(const Tattribute* attr, TanimTime value, int element) {
    if (attributeIndex(attr) < 0) return false;
    TdataHandle h = fNormalBlock->outputValue(attr, element);
    h.set(value);
    h.setClean();
    return true;
}

TdataBlock* TdependNode::makeDataBlock(const TdgContext& context, bool create) {
    if (context.isNormal()) {
        if (!fNormalBlock && create) fNormalBlock = std::make_unique<TdataBlock>(*this, TdgContext::fsNormal);
        return fNormalBlock.get();
    }
    return TdependGraph::current().contextBlock(context, this, create);
}

bool TdependNode::shouldBeWritten(const Tplug& plug) const {
    const Tattribute* a = plug.attribute();
    return a->hasFlag(Tattribute::kStorable) && !a->hasFlag(Tattribute::kInternal);
}

void TdependNode::addToGraph() {
    fInGraph = true;
    makeDataBlock(TdgContext::fsNormal, true);
}
void TdependNode::removeFromGraph() { fInGraph = false; }

int TdependNode::addClientHook(ClientHook hook) {
    fHooks[fNextHook] = std::move(hook);
    return fNextHook++;
}
void TdependNode::removeClientHook(int id) { fHooks.erase(id); }

void TdependNode::notifyClients(const Tplug& p) {
    for (auto& [id, h] : fHooks) h(p);
}

Tplug TdependNode::inputSource(const Tattribute* attr, int index) const {
    if (fInputs.empty()) return {};
    auto it = fInputs.find(PlugKey{attr->index(), index});
    return it == fInputs.end() ? Tplug() : it->second;
}
