#include "Host/Graph/Tattribute.h"

#include <algorithm>

Tattribute::Tattribute(const char* n, const char* s, TiffTag t, TattrType type)
    : fName(n), fShortName(s), fTag(t), fType(type) {
    if (type == TattrType::Message) setStorable(false);
}

Tattribute::~Tattribute() = default;

void Tattribute::setNativeDefaultData(double x, double y, double z) {
    fDefault[0] = x;
    fDefault[1] = y;
    fDefault[2] = z;
}

double Tattribute::clampNumber(double v) const {
    if (fHasMin && v < fMin) v = fMin;
    if (fHasMax && v > fMax) v = fMax;
    return v;
}

void Tattribute::setParent(TattributeCompound* p) {
    if (fParent == p) return;
    if (fParent) {
        auto& c = fParent->fChildren;
        c.erase(std::remove(c.begin(), c.end(), this), c.end());
    }
    fParent = p;
    if (p) p->fChildren.push_back(this);
}

const Tattribute* Tattribute::arrayAncestor() const {
    for (const Tattribute* a = this; a; a = a->fParent)
        if (a->isArray()) return a;
    return nullptr;
}

bool Tattribute::isNumeric() const {
    switch (fType) {
    case TattrType::Double:
    case TattrType::Float:
    case TattrType::Int16:
    case TattrType::Int32:
    case TattrType::Boolean:
    case TattrType::Byte:
    case TattrType::Enum:
    case TattrType::Time: return true;
    default: return false;
    }
}

bool Tattribute::acceptsLetter(const TletterClass* c) const {
    if (!c) return true;
    for (const TletterClass* a : fLetterClasses)
        if (c->derivesFrom(*a)) return true;
    return fLetterClasses.empty() && fType == TattrType::Generic;
}

void Tattribute::addField(const Tstring& label, int value) { fFields.emplace_back(label, value); }

bool Tattribute::fieldValue(const Tstring& label, int& value) const {
    for (auto& [l, v] : fFields)
        if (l == label) {
            value = v;
            return true;
        }
    return false;
}

Tattribute* TattributeCompound::child(const Tstring& n) const {
    for (Tattribute* c : fChildren)
        if (c->hasName(n)) return c;
    return nullptr;
}

unsigned TattributeCompound::numericComponents() const {
    for (Tattribute* c : fChildren)
        if (!c->isNumeric()) return 0;
    return static_cast<unsigned>(fChildren.size());
}

TattributeNumericCompound::TattributeNumericCompound(const char* n, const char* s, TiffTag t, TattrType childType,
                                                     unsigned count, const char* const* names,
                                                     const char* const* shortNames)
    : TattributeCompound(n, s, t) {
    static const char* const kSuffix[] = {"X", "Y", "Z"};
    static const char* const kShortSuffix[] = {"x", "y", "z"};
    for (unsigned i = 0; i < count; ++i) {
        std::string cn = names ? names[i] : std::string(n) + kSuffix[i];
        std::string cs = shortNames ? shortNames[i] : std::string(s) + kShortSuffix[i];
        auto child = std::make_unique<Tattribute>(cn.c_str(), cs.c_str(), t + i + 1, childType);
        child->setParent(this);
        fOwned.push_back(std::move(child));
    }
}

TattributeNumericCompound::~TattributeNumericCompound() {
    for (auto& c : fOwned) c->setParent(nullptr);
}

void TattributeNumericCompound::setNativeDefaultData(double x, double y, double z) {
    Tattribute::setNativeDefaultData(x, y, z);
    const double v[3] = {x, y, z};
    for (unsigned i = 0; i < fOwned.size(); ++i) fOwned[i]->setNativeDefaultData(v[i]);
}

void TattributeList::addAttribute(Tattribute* a) {
    fList.push_back(a);
    if (auto* nc = dynamic_cast<TattributeNumericCompound*>(a))
        for (Tattribute* c : nc->children()) fList.push_back(c);
}
