#include "Host/Graph/TdataBlock.h"
#include "Host/Base/ThostException.h"
#include "Host/Graph/TdependGraph.h"
#include "Host/Graph/TdependNode.h"

#include <algorithm>
#include <cmath>

// ---- TdataHandle ----

double TdataHandle::asDouble() const {
    if (!fSlot) return 0.0;
    if (fAttr && fAttr->type() == TattrType::Time) return TanimTime::fromTicks(fSlot->ticks).seconds();
    if (!fSlot->data.isNULL()) return fSlot->data.convertToDoubleValue();
    return fSlot->number;
}

std::int32_t TdataHandle::asInt() const { return static_cast<std::int32_t>(std::lround(asDouble())); }

TanimTime TdataHandle::asTime() const {
    if (!fSlot) return TanimTime();
    if (fAttr && fAttr->type() == TattrType::Time) return TanimTime::fromTicks(fSlot->ticks);
    if (!fSlot->data.isNULL()) return fSlot->data.timeValue();
    return TanimTime(fSlot->number, kSeconds);
}

T4dDblVector TdataHandle::asVector() const {
    T4dDblVector v;
    if (fSlot && !fBlock) return {fSlot->components[0], fSlot->components[1], fSlot->components[2]};
    auto* c = asCompound(fAttr);
    if (!c || !fBlock) return v;
    const auto& kids = c->children();
    for (unsigned i = 0; i < kids.size() && i < 3; ++i) v[i] = fBlock->slot(kids[i], fElement).number;
    return v;
}

T4dDblMatrix TdataHandle::asMatrix() const {
    if (fSlot)
        if (auto* m = fSlot->data.as<TdataMatrix>()) return m->matrix();
    return T4dDblMatrix();
}

void TdataHandle::set(double v) {
    if (!fSlot) return;
    if (fAttr && fAttr->type() == TattrType::Time) fSlot->ticks = TanimTime(v, kSeconds).ticks();
    else fSlot->number = v;
}

void TdataHandle::set(TanimTime t) {
    if (!fSlot) return;
    fSlot->ticks = t.ticks();
    fSlot->number = t.seconds();
}

void TdataHandle::set(const T4dDblVector& v) {
    if (fSlot && !fBlock) {
        for (int i = 0; i < 3; ++i) fSlot->components[i] = v[i];
        return;
    }
    auto* c = asCompound(fAttr);
    if (!c || !fBlock) return;
    const auto& kids = c->children();
    for (unsigned i = 0; i < kids.size() && i < 3; ++i) {
        TvalueSlot& s = fBlock->slot(kids[i], fElement);
        s.number = v[i];
    }
}

void TdataHandle::set(const Tdata& d) {
    if (!fSlot) return;
    fSlot->data = d;
    fSlot->data.makeHolder();
    fSlot->dirty = false;
}

void TdataHandle::setClean() {
    if (!fSlot) return;
    fSlot->dirty = false;
    if (auto* c = asCompound(fAttr); c && fBlock)
        for (Tattribute* k : c->children()) fBlock->slot(k, fElement).dirty = false;
}

TdataHandle TdataHandle::child(const Tattribute* childAttr) const {
    if (!fBlock) return {};
    return fBlock->outputValue(childAttr, fElement);
}

// ---- TmultiHandle ----

TmultiHandle::TmultiHandle(TdataBlock* block, const Tattribute* attr, bool input)
    : fBlock(block), fAttr(attr), fInput(input) {
    if (fBlock) fIndices = fBlock->elementIndices(attr);
}

bool TmultiHandle::jumpToArrayElement(unsigned i) {
    fPos = i;
    return i < fIndices.size();
}

bool TmultiHandle::jumpToElement(int logical) {
    for (unsigned i = 0; i < fIndices.size(); ++i)
        if (fIndices[i] == logical) {
            fPos = i;
            return true;
        }
    return false;
}

TdataHandle TmultiHandle::value() {
    if (isDone()) return {};
    return fInput ? fBlock->inputValue(fAttr, fIndices[fPos]) : fBlock->outputValue(fAttr, fIndices[fPos]);
}

TdataHandle TmultiHandle::childValue(const Tattribute* child) {
    if (isDone()) return {};
    return fInput ? fBlock->inputValue(child, fIndices[fPos]) : fBlock->outputValue(child, fIndices[fPos]);
}

// ---- TmultiBuilder ----

TdataHandle TmultiBuilder::addElement(int logicalIndex) { return fBlock.outputValue(fAttr, logicalIndex); }

void TmultiBuilder::removeElement(int logicalIndex) { fBlock.removeElement(fAttr, logicalIndex); }

unsigned TmultiBuilder::elementCount() const {
    return static_cast<unsigned>(fBlock.elementIndices(fAttr).size());
}

// ---- TdataBlock ----

TdataBlock::TdataBlock(TdependNode& node, const TdgContext& context) : fNode(node), fContext(context) {}

TdataBlock::~TdataBlock() = default;

TdataBlock::Store& TdataBlock::store(const Tattribute* attr) {
    int i = attr->index();
    if (i < 0) throw ThostException(1, "attribute '" + attr->name() + "' is not on node " + fNode.name());
    // Sized for the whole node at once: slots are referenced across computes.
    if (static_cast<std::size_t>(i) >= fStores.size())
        fStores.resize(std::max<std::size_t>(i + 1, fNode.attributeCount() + 8));
    Store& s = fStores[i];
    if (!s.used) {
        s.used = true;
        initSlot(attr, s.single);
    }
    return s;
}

const TdataBlock::Store* TdataBlock::findStore(const Tattribute* attr) const {
    int i = attr->index();
    if (i < 0 || static_cast<std::size_t>(i) >= fStores.size() || !fStores[i].used) return nullptr;
    return &fStores[i];
}

void TdataBlock::initSlot(const Tattribute* attr, TvalueSlot& s) const {
    s.number = attr->defaultNumber();
    s.ticks = attr->type() == TattrType::Time ? TanimTime(attr->defaultNumber(), kSeconds).ticks() : 0;
    s.data = attr->defaultData();
    s.dirty = false;
}

TvalueSlot& TdataBlock::slot(const Tattribute* attr, int element) {
    Store& s = store(attr);
    if (element < 0 || !attr->isElementOfArray()) return s.single;
    auto it = s.elements.find(element);
    if (it != s.elements.end()) return it->second;
    TvalueSlot& e = s.elements[element];
    initSlot(attr, e);
    // A computed element that appears only now has never been computed.
    TdependNodeVS* vs = fNode.vsData();
    const int i = attr->index();
    if (attr->hasFlag(Tattribute::kComputeModifies) ||
        (i >= 0 && static_cast<unsigned>(i) < vs->attributeCount() && vs->isAffected(i)))
        e.dirty = true;
    // The multi root records every present index.
    const Tattribute* root = attr->arrayAncestor();
    if (root != attr) {
        Store& rs = store(root);
        if (!rs.elements.count(element)) initSlot(root, rs.elements[element]);
    }
    return e;
}

std::vector<int> TdataBlock::elementIndices(const Tattribute* attr) const {
    std::vector<int> out;
    const Tattribute* root = attr->arrayAncestor();
    if (!root) return out;
    if (const Store* s = findStore(root))
        for (auto& [k, v] : s->elements) out.push_back(k);
    return out;
}

bool TdataBlock::hasElement(const Tattribute* attr, int index) const {
    const Tattribute* root = attr->arrayAncestor();
    const Store* s = root ? findStore(root) : nullptr;
    return s && s->elements.count(index);
}

void TdataBlock::removeElement(const Tattribute* attr, int index) {
    const Tattribute* root = attr->arrayAncestor();
    if (!root) return;
    // Remove the element from the root and every attribute under it.
    auto drop = [&](const Tattribute* a, auto&& self) -> void {
        if (a->index() >= 0 && static_cast<std::size_t>(a->index()) < fStores.size())
            fStores[a->index()].elements.erase(index);
        if (auto* c = asCompound(a))
            for (Tattribute* k : c->children()) self(k, self);
    };
    drop(root, drop);
}

TdataHandle TdataBlock::outputValue(const Tattribute* attr, int element) {
    return TdataHandle(this, attr, element, &slot(attr, element));
}

TdataHandle TdataBlock::inputValue(const Tattribute* attr, int element) {
    TvalueSlot& s = slot(attr, element);
    if (s.dirty) evaluate(attr, element, s);
    // A compound is clean only when its children are.
    if (auto* c = asCompound(attr))
        for (Tattribute* k : c->children()) inputValue(k, element);
    return TdataHandle(this, attr, element, &slot(attr, element));
}

void TdataBlock::evaluate(const Tattribute* attr, int element, TvalueSlot& s) {
    if (s.computing) return; // a cycle: the stored value stands
    s.computing = true;
    // Looked up again at the end: a compute may add attributes and move the stores.
    struct Guard {
        TdataBlock* block;
        const Tattribute* attr;
        int element;
        ~Guard() { block->slot(attr, element).computing = false; }
    } guard{this, attr, element};

    Tplug plug(&fNode, const_cast<Tattribute*>(attr), attr->isElementOfArray() ? element : -1);
    Tplug src = fNode.inputSource(attr, plug.multiIndex());
    if (!src.isNull()) {
        TdataBlock* sb = src.node()->makeDataBlock(fContext, true);
        TdataHandle h = sb->inputValue(src.attribute(), src.multiIndex());
        TvalueSlot& from = sb->slot(src.attribute(), src.multiIndex());
        TvalueSlot& to = slot(attr, element); // the source's evaluation may have grown our stores
        if (attr->type() == TattrType::Time) {
            to.ticks = src.attribute()->type() == TattrType::Time ? from.ticks : h.asTime().ticks();
            to.number = TanimTime::fromTicks(to.ticks).seconds();
        } else if (attr->isNumeric()) {
            to.number = h.asDouble();
        } else {
            to.data = from.data;
        }
        to.dirty = false;
        return;
    }
    if (fNode.vsData() && (attr->index() < static_cast<int>(fNode.vsData()->attributeCount()))
            ? (fNode.vsData()->isAffected(attr->index()) || attr->hasFlag(Tattribute::kComputeModifies))
            : attr->hasFlag(Tattribute::kComputeModifies)) {
        ++fWriting;
        bool done = false;
        try {
            done = fNode.computePlug(plug, *this);
        } catch (const ThostException&) {
            // Evaluation goes on; the value stays as it was.
        }
        --fWriting;
        if (done) ++fNode.fComputeCount;
    }
    slot(attr, element).dirty = false;
}

bool TdataBlock::isClean(const Tattribute* attr, int element) { return !slot(attr, element).dirty; }

void TdataBlock::setClean(const Tattribute* attr, int element) { outputValue(attr, element).setClean(); }

void TdataBlock::markDirty(const Tattribute* attr, int element) {
    slot(attr, element).dirty = true;
    if (auto* c = asCompound(attr))
        for (Tattribute* k : c->children()) slot(k, element).dirty = true;
}

void TdataBlock::resetToDefaults() {
    for (unsigned i = 0; i < fStores.size(); ++i) fStores[i] = Store();
}

void TdataBlock::copyValuesFrom(const TdataBlock& other) {
    fStores = other.fStores;
    for (Store& s : fStores) {
        s.single.computing = false;
        for (auto& [k, e] : s.elements) e.computing = false;
    }
}

void TdataBlock::markAllComputedDirty() {
    TdependNodeVS* vs = fNode.vsData();
    const unsigned n = fNode.attributeCount();
    for (unsigned i = 0; i < n; ++i) {
        Tattribute* a = fNode.attribute(i);
        if (!a) continue;
        bool computed = (vs && i < vs->attributeCount() && vs->isAffected(static_cast<int>(i))) ||
                        a->hasFlag(Tattribute::kComputeModifies);
        bool connected = false;
        for (auto& [key, src] : fNode.inputConnections())
            if (key.attr == static_cast<int>(i)) connected = true;
        if (!computed && !connected) continue;
        Store& s = store(a);
        s.single.dirty = true;
        for (auto& [k, e] : s.elements) e.dirty = true;
    }
}
