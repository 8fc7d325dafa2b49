#pragma once
// Data envelopes over shared, reference-counted letters.
//
// Copying an envelope shares its letter. An envelope that will change its
// letter becomes a writer first (makeWriter), which copies the letter only if
// someone else holds it too; it turns back into a holder (makeHolder) before it
// is stored. Letters are counted without atomics: evaluation is single-threaded.

#include "Host/Time/TanimTime.h"

#include <cstdint>
#include <string>

// Identity of a letter class; `parent` lets a typed read accept derived classes.
struct TletterClass {
    const char* name;
    const TletterClass* parent;
    bool derivesFrom(const TletterClass& other) const {
        for (const TletterClass* c = this; c; c = c->parent)
            if (c == &other) return true;
        return false;
    }
};

class Tletter {
public:
    virtual ~Tletter() = default;
    virtual const TletterClass& letterClass() const = 0;
    virtual Tletter* clone() const = 0;

    unsigned refCount() const { return fRefs; }
    void ref() { ++fRefs; }
    void unref() {
        if (--fRefs == 0) delete this;
    }

    // Copies made by the writer protocol since start; tests read it.
    static std::uint64_t sCopyCount;

protected:
    Tletter() = default;
    Tletter(const Tletter&) : fRefs(0) {}
    Tletter& operator=(const Tletter&) = delete;

private:
    unsigned fRefs = 0;
};

class Tdata {
public:
    Tdata() = default;
    explicit Tdata(Tletter* letter) : fLetter(letter) {
        if (fLetter) fLetter->ref();
    }
    Tdata(const Tdata& o) : fLetter(o.fLetter) {
        if (fLetter) fLetter->ref();
    }
    Tdata(Tdata&& o) noexcept : fLetter(o.fLetter), fWriter(o.fWriter) {
        o.fLetter = nullptr;
        o.fWriter = false;
    }
    Tdata& operator=(const Tdata& o) {
        if (o.fLetter) o.fLetter->ref();
        if (fLetter) fLetter->unref();
        fLetter = o.fLetter;
        fWriter = false;
        return *this;
    }
    Tdata& operator=(Tdata&& o) noexcept {
        if (this != &o) {
            if (fLetter) fLetter->unref();
            fLetter = o.fLetter;
            fWriter = o.fWriter;
            o.fLetter = nullptr;
            o.fWriter = false;
        }
        return *this;
    }
    ~Tdata() {
        if (fLetter) fLetter->unref();
    }

    static const Tdata fsNULL;

    bool isNULL() const { return fLetter == nullptr; }
    Tletter* letter() const { return fLetter; }
    const TletterClass* letterClass() const { return fLetter ? &fLetter->letterClass() : nullptr; }
    bool isA(const TletterClass& c) const { return fLetter && fLetter->letterClass().derivesFrom(c); }

    // Typed access to the letter, or nullptr for an empty envelope or a letter of another class.
    template <class L> L* as() const { return isA(L::sClass) ? static_cast<L*>(fLetter) : nullptr; }
    // As `as`, but a letter of another class throws the host's exception (code 8).
    template <class L> L* require() const {
        if (L* l = as<L>()) return l;
        throwWrongClass(L::sClass);
    }

    // Writer protocol.
    void makeWriter();
    void makeHolder() { fWriter = false; }
    void makeWritable() { makeWriter(); }
    bool isWriter() const { return fWriter; }
    bool isLetterWritable() const { return fLetter && fLetter->refCount() == 1; }

    void reset() {
        if (fLetter) fLetter->unref();
        fLetter = nullptr;
        fWriter = false;
    }
    void setToNULL() { reset(); }

    // Readings of number letters (TdataNumber); 0 for anything else.
    TanimTime timeValue() const;
    double convertToDoubleValue() const;
    float convertToFloatValue() const { return static_cast<float>(convertToDoubleValue()); }
    std::int32_t convertToInt32Value() const;
    std::int16_t convertToInt16Value() const { return static_cast<std::int16_t>(convertToInt32Value()); }
    bool convertToBooleanValue() const { return convertToDoubleValue() != 0.0; }

private:
    [[noreturn]] void throwWrongClass(const TletterClass& wanted) const;

    Tletter* fLetter = nullptr;
    bool fWriter = false;
};

// Makes a letter and its envelope in one go: `auto d = makeData<TdataDoubleArray>();`
template <class L, class... Args> Tdata makeData(Args&&... args) { return Tdata(new L(std::forward<Args>(args)...)); }

// Declares the letter-class identity and copy of a letter type.
#define TLETTER_CLASS(Cls)                                                                                   \
public:                                                                                                      \
    static const TletterClass sClass;                                                                        \
    const TletterClass& letterClass() const override { return sClass; }                                     \
    Tletter* clone() const override {                                                                        \
        ++Tletter::sCopyCount;                                                                               \
        return new Cls(*this);                                                                               \
    }

// A number or a time as a letter, for values handed around as envelopes.
class TdataNumber : public Tletter {
    TLETTER_CLASS(TdataNumber)
public:
    TdataNumber() = default;
    explicit TdataNumber(double v) : fValue(v) {}
    explicit TdataNumber(TanimTime t) : fValue(t.seconds()), fTime(t), fIsTime(true) {}
    double value() const { return fValue; }
    TanimTime time() const { return fIsTime ? fTime : TanimTime(fValue, kSeconds); }

private:
    double fValue = 0;
    TanimTime fTime;
    bool fIsTime = false;
};
