#pragma once
// Attribute descriptors: one per attribute of a node class (or per dynamic
// attribute of one node). Values live in data blocks, not here.

#include "Host/Base/Tarray.h"
#include "Host/Data/Tdata.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using TiffTag = std::uint32_t;
constexpr TiffTag makeIffTag(const char* four) {
    return (TiffTag(std::uint8_t(four[0])) << 24) | (TiffTag(std::uint8_t(four[1])) << 16) |
           (TiffTag(std::uint8_t(four[2])) << 8) | TiffTag(std::uint8_t(four[3]));
}

enum class TattrType {
    Double,
    Float,
    Int16,
    Int32,
    Boolean,
    Byte,
    Enum,
    Time,
    Compound,
    Message,
    Typed,
    Generic
};

// What happens to a value or multi element when its input connection goes.
enum class TdisconnectOption { kNothing, kReset, kDelete };

class TattributeCompound;

class Tattribute {
public:
    enum Flag : std::uint32_t {
        kReadable = 1u << 0,
        kWritable = 1u << 1,
        kConnectable = 1u << 2,
        kStorable = 1u << 3,
        kKeyable = 1u << 4,
        kArray = 1u << 5,
        kIndexMatters = 1u << 6,
        kComputeModifies = 1u << 7,
        kInternal = 1u << 8,                // internal to the class; not per-particle data
        kHiddenFromPerParticle = 1u << 9,   // skipped by per-particle handling
        kPerParticleDirtyOnTime = 1u << 10, // dependents dirtied when time changes
        kAlwaysWritable = 1u << 11,         // arrays may be written in place outside a compute
        kHidden = 1u << 12,
        kDynamic = 1u << 13,
    };

    Tattribute(const char* name, const char* shortName, TiffTag tag, TattrType type);
    virtual ~Tattribute();
    Tattribute(const Tattribute&) = delete;
    Tattribute& operator=(const Tattribute&) = delete;

    const Tstring& name() const { return fName; }
    const Tstring& shortName() const { return fShortName; }
    TiffTag tag() const { return fTag; }
    TattrType type() const { return fType; }
    bool hasName(const Tstring& n) const { return n == fName || n == fShortName; }

    bool hasFlag(Flag f) const { return (fFlags & f) != 0; }
    void setFlag(Flag f, bool on = true) { fFlags = on ? (fFlags | f) : (fFlags & ~std::uint32_t(f)); }
    void setArray(bool on) { setFlag(kArray, on); }
    bool isArray() const { return hasFlag(kArray); }
    void setIndexMatters(bool on) { setFlag(kIndexMatters, on); }
    void setComputeModifies(bool on) { setFlag(kComputeModifies, on); }
    void setKeyable(bool on) { setFlag(kKeyable, on); }
    void setStorable(bool on) { setFlag(kStorable, on); }
    void setWritable(bool on) { setFlag(kWritable, on); }
    void setReadable(bool on) { setFlag(kReadable, on); }
    void setInternal(bool on) { setFlag(kInternal, on); }
    void setDisconnectOption(TdisconnectOption o) { fDisconnect = o; }
    TdisconnectOption disconnectOption() const { return fDisconnect; }

    // Defaults. Numbers keep up to three components; typed attributes a letter.
    void setNativeDefaultData(double v) { fDefault[0] = v; }
    void setNativeDefaultData(double x, double y, double z);
    void setNativeDefaultData(const Tdata& d) { fDefaultData = d; }
    double defaultNumber(int component = 0) const { return fDefault[component]; }
    const Tdata& defaultData() const { return fDefaultData; }

    // Hard bounds for numbers; a value set from outside is clamped to them.
    void setMinValue(double v) {
        fMin = v;
        fHasMin = true;
    }
    void setMaxValue(double v) {
        fMax = v;
        fHasMax = true;
    }
    double clampNumber(double v) const;
    bool hasMinValue() const { return fHasMin; }
    bool hasMaxValue() const { return fHasMax; }
    double minValue() const { return fMin; }
    double maxValue() const { return fMax; }

    void setParent(TattributeCompound* parent);
    TattributeCompound* parent() const { return fParent; }
    // The nearest multi attribute at or above this one, or null.
    const Tattribute* arrayAncestor() const;
    bool isElementOfArray() const { return arrayAncestor() != nullptr; }

    bool isNumeric() const;
    bool isCompound() const { return fType == TattrType::Compound; }
    // For numeric compounds (3Double and friends): the children hold the numbers.
    virtual unsigned numericComponents() const { return isNumeric() ? 1 : 0; }

    // Typed and generic attributes: the letter classes they accept.
    const std::vector<const TletterClass*>& letterClasses() const { return fLetterClasses; }
    bool acceptsLetter(const TletterClass* c) const;

    // Index in the owning class's (or node's) attribute list, set when appended.
    int index() const { return fIndex; }
    void setIndex(int i) { fIndex = i; }

    // Enum rows.
    void addField(const Tstring& label, int value);
    bool fieldValue(const Tstring& label, int& value) const;
    const std::vector<std::pair<Tstring, int>>& fields() const { return fFields; }

protected:
    void addLetterClass(const TletterClass* c) { fLetterClasses.push_back(c); }

private:
    Tstring fName, fShortName;
    TiffTag fTag;
    TattrType fType;
    std::uint32_t fFlags = kReadable | kWritable | kConnectable | kStorable;
    double fDefault[3] = {0, 0, 0};
    Tdata fDefaultData;
    double fMin = 0, fMax = 0;
    bool fHasMin = false, fHasMax = false;
    TattributeCompound* fParent = nullptr;
    TdisconnectOption fDisconnect = TdisconnectOption::kNothing;
    std::vector<const TletterClass*> fLetterClasses;
    std::vector<std::pair<Tstring, int>> fFields;
    int fIndex = -1;
};

class TattributeDouble : public Tattribute {
public:
    TattributeDouble(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Double) {}
};
class TattributeFloat : public Tattribute {
public:
    TattributeFloat(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Float) {}
};
class TattributeInt16 : public Tattribute {
public:
    TattributeInt16(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Int16) {}
};
class TattributeInt32 : public Tattribute {
public:
    TattributeInt32(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Int32) {}
};
class TattributeBoolean : public Tattribute {
public:
    TattributeBoolean(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Boolean) {}
};
class TattributeByte : public Tattribute {
public:
    TattributeByte(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Byte) {}
};
class TattributeEnum : public Tattribute {
public:
    TattributeEnum(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Enum) {}
};
class TattributeTime : public Tattribute {
public:
    TattributeTime(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Time) {}
};
class TattributeMessage : public Tattribute {
public:
    TattributeMessage(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Message) {}
};

class TattributeCompound : public Tattribute {
public:
    TattributeCompound(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Compound) {}
    const std::vector<Tattribute*>& children() const { return fChildren; }
    Tattribute* child(const Tstring& name) const;
    unsigned numericComponents() const override;

private:
    friend class Tattribute;
    std::vector<Tattribute*> fChildren;
};

// A compound of two or three numbers whose children it makes and owns
// (`translate` with `translateX` ...). Children are named by the given names, or
// by the parent's names with X, Y, Z appended.
class TattributeNumericCompound : public TattributeCompound {
public:
    TattributeNumericCompound(const char* n, const char* s, TiffTag t, TattrType childType, unsigned count,
                              const char* const* childNames = nullptr,
                              const char* const* childShortNames = nullptr);
    ~TattributeNumericCompound() override;
    void setNativeDefaultData(double x, double y, double z);

private:
    std::vector<std::unique_ptr<Tattribute>> fOwned;
};

class Tattribute3Double : public TattributeNumericCompound {
public:
    Tattribute3Double(const char* n, const char* s, TiffTag t, const char* const* names = nullptr,
                      const char* const* shortNames = nullptr)
        : TattributeNumericCompound(n, s, t, TattrType::Double, 3, names, shortNames) {}
};
class Tattribute3Float : public TattributeNumericCompound {
public:
    Tattribute3Float(const char* n, const char* s, TiffTag t, const char* const* names = nullptr,
                     const char* const* shortNames = nullptr)
        : TattributeNumericCompound(n, s, t, TattrType::Float, 3, names, shortNames) {}
};
class Tattribute2Float : public TattributeNumericCompound {
public:
    Tattribute2Float(const char* n, const char* s, TiffTag t, const char* const* names = nullptr,
                     const char* const* shortNames = nullptr)
        : TattributeNumericCompound(n, s, t, TattrType::Float, 2, names, shortNames) {}
};
class Tattribute3Int32 : public TattributeNumericCompound {
public:
    Tattribute3Int32(const char* n, const char* s, TiffTag t, const char* const* names = nullptr,
                     const char* const* shortNames = nullptr)
        : TattributeNumericCompound(n, s, t, TattrType::Int32, 3, names, shortNames) {}
};

// Holds a letter of one class.
class TattributeTyped : public Tattribute {
public:
    TattributeTyped(const char* n, const char* s, TiffTag t, const TletterClass& c)
        : Tattribute(n, s, t, TattrType::Typed) {
        addLetterClass(&c);
    }
};

// Accepts letters of any of a set of classes.
class TattributeGeneric : public Tattribute {
public:
    TattributeGeneric(const char* n, const char* s, TiffTag t) : Tattribute(n, s, t, TattrType::Generic) {}
    void addAccept(const TletterClass& c) { addLetterClass(&c); }
};

// The compound an attribute is, or null; cheaper than a dynamic_cast on hot paths.
inline const TattributeCompound* asCompound(const Tattribute* a) {
    return a && a->isCompound() ? static_cast<const TattributeCompound*>(a) : nullptr;
}
inline TattributeCompound* asCompound(Tattribute* a) {
    return a && a->isCompound() ? static_cast<TattributeCompound*>(a) : nullptr;
}

// The attributes of a class in their fixed order.
class TattributeList {
public:
    // Appends the attribute and, for numeric compounds, the children it owns.
    void addAttribute(Tattribute* a);
    void addLast(Tattribute* a) { addAttribute(a); }
    unsigned count() const { return static_cast<unsigned>(fList.size()); }
    Tattribute* operator[](unsigned i) const { return fList[i]; }
    const std::vector<Tattribute*>& list() const { return fList; }

private:
    std::vector<Tattribute*> fList;
};
