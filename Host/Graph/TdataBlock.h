#pragma once
// Per-node, per-context store of attribute values, and the handles that read
// and write them.

#include "Host/Data/TdataArrays.h"
#include "Host/Graph/Tattribute.h"
#include "Host/Graph/TdgContext.h"
#include "Host/Math/T4dDblMatrix.h"
#include "Host/Math/T4dDblVector.h"

#include <map>
#include <vector>

class TdependNode;
class TdataBlock;

// One stored value. Numbers of every kind live in `number`, times in `ticks`,
// letters in `data`; compounds keep only their dirty mark.
struct TvalueSlot {
    double number = 0;
    double components[3] = {0, 0, 0}; // numeric compounds, in values held outside a block
    std::int64_t ticks = 0;
    Tdata data;
    bool dirty = false;
    bool computing = false;
};

class TdataHandle {
public:
    TdataHandle() = default;
    TdataHandle(TdataBlock* block, const Tattribute* attr, int element, TvalueSlot* slot)
        : fBlock(block), fAttr(attr), fElement(element), fSlot(slot) {}

    bool isValid() const { return fSlot != nullptr; }
    const Tattribute* attribute() const { return fAttr; }
    int element() const { return fElement; }

    double asDouble() const;
    float asFloat() const { return static_cast<float>(asDouble()); }
    std::int32_t asInt() const;
    std::int16_t asShort() const { return static_cast<std::int16_t>(asInt()); }
    bool asBool() const { return asDouble() != 0.0; }
    unsigned char asChar() const { return static_cast<unsigned char>(asInt()); }
    TanimTime asTime() const;
    // Numeric compounds: the children's values (missing components are 0).
    T4dDblVector asVector() const;
    // Matrix letters; identity when empty.
    T4dDblMatrix asMatrix() const;
    Tdata& data() { return fSlot->data; }
    const Tdata& data() const { return fSlot->data; }
    // Same as data(), under the name the module uses.
    Tdata& asData() { return data(); }

    // Numbers are stored and left as they are; the caller marks them clean.
    void set(double v);
    void set(std::int32_t v) { set(static_cast<double>(v)); }
    void set(bool v) { set(v ? 1.0 : 0.0); }
    void set(TanimTime t);
    void set(const T4dDblVector& v);
    // A letter is stored and marked clean.
    void set(const Tdata& d);
    void setClean();
    // Handle of a child of this compound handle, same element.
    TdataHandle child(const Tattribute* childAttr) const;

private:
    TdataBlock* fBlock = nullptr;
    const Tattribute* fAttr = nullptr;
    int fElement = -1;
    TvalueSlot* fSlot = nullptr;
};

class TmultiHandle {
public:
    TmultiHandle() = default;
    TmultiHandle(TdataBlock* block, const Tattribute* attr, bool input);

    unsigned elementCount() const { return static_cast<unsigned>(fIndices.size()); }
    // Moves to the i-th present element (in order of logical index).
    bool jumpToArrayElement(unsigned i);
    // Moves to the element of logical index `logical`, if present.
    bool jumpToElement(int logical);
    int elementIndex() const { return fPos < fIndices.size() ? fIndices[fPos] : -1; }
    bool advance() { return ++fPos < fIndices.size(); }
    bool isDone() const { return fPos >= fIndices.size(); }
    // The current element's value (computed first for an input handle).
    TdataHandle value();
    TdataHandle childValue(const Tattribute* child);
    const std::vector<int>& indices() const { return fIndices; }

private:
    TdataBlock* fBlock = nullptr;
    const Tattribute* fAttr = nullptr;
    bool fInput = false;
    std::vector<int> fIndices;
    unsigned fPos = 0;
};

// Builds a multi value element by element.
class TmultiBuilder {
public:
    TmultiBuilder(TdataBlock& block, const Tattribute* attr) : fBlock(block), fAttr(attr) {}
    TdataHandle addElement(int logicalIndex);
    void removeElement(int logicalIndex);
    unsigned elementCount() const;

private:
    TdataBlock& fBlock;
    const Tattribute* fAttr;
};

class TdataBlock {
public:
    TdataBlock(TdependNode& node, const TdgContext& context);
    virtual ~TdataBlock();
    TdataBlock(const TdataBlock&) = delete;
    TdataBlock& operator=(const TdataBlock&) = delete;

    TdependNode& node() const { return fNode; }
    const TdgContext& context() const { return fContext; }
    bool isNormalContext() const { return fContext.isNormal(); }

    // Up-to-date value: computed first (through the input connection or the
    // node's computePlug) if dirty.
    TdataHandle inputValue(const Tattribute* attr, int element = -1);
    // Stored value as it stands, for writing; never computes.
    TdataHandle outputValue(const Tattribute* attr, int element = -1);
    TmultiHandle inputArrayValue(const Tattribute* attr) { return TmultiHandle(this, attr, true); }
    TmultiHandle outputArrayValue(const Tattribute* attr) { return TmultiHandle(this, attr, false); }

    bool isClean(const Tattribute* attr, int element = -1);
    void setClean(const Tattribute* attr, int element = -1);
    void markDirty(const Tattribute* attr, int element = -1);
    // True while this block's node computes into it: arrays may be written in place.
    bool isInWritingMode() const { return fWriting > 0; }

    // Logical indices present for a multi attribute (or the multi above it).
    std::vector<int> elementIndices(const Tattribute* attr) const;
    bool hasElement(const Tattribute* attr, int index) const;
    void removeElement(const Tattribute* attr, int index);
    TvalueSlot& slot(const Tattribute* attr, int element);
    // Gives every attribute its default value (new node, or a reset).
    void resetToDefaults();
    // Copies every stored value of another block (timed blocks start from the normal one).
    void copyValuesFrom(const TdataBlock& other);
    void markAllComputedDirty();

private:
    friend class TmultiBuilder;
    struct Store {
        TvalueSlot single;
        std::map<int, TvalueSlot> elements;
        bool used = false;
    };
    Store& store(const Tattribute* attr);
    const Store* findStore(const Tattribute* attr) const;
    void initSlot(const Tattribute* attr, TvalueSlot& s) const;
    void evaluate(const Tattribute* attr, int element, TvalueSlot& s);

    TdependNode& fNode;
    const TdgContext& fContext;
    std::vector<Store> fStores;
    int fWriting = 0;
};

using TdataBlockDG = TdataBlock;

// A value held outside any block: what a command or a file hands to
// setCachedValue.
class TstandaloneValue {
public:
    explicit TstandaloneValue(const Tattribute* attr) : fAttr(attr) {}
    TdataHandle handle() { return TdataHandle(nullptr, fAttr, -1, &fSlot); }
    TvalueSlot& slot() { return fSlot; }

private:
    const Tattribute* fAttr;
    TvalueSlot fSlot;
};
