#pragma once
// An object's cached state at one time: its per-particle arrays by name.

#include "Commands/Caches/TdynCachedAttribute.h"
#include "Host/Time/TanimTime.h"

class TdynAttributeCache {
public:
    explicit TdynAttributeCache(TanimTime time) : fTime(time) {}
    TdynAttributeCache(const TdynAttributeCache& o) : fTime(o.fTime) {
        fAttributes.reserve(o.fAttributes.size());
        for (const auto& a : o.fAttributes)
            fAttributes.push_back(std::make_unique<TdynCachedAttribute>(*a));
    }
    TdynAttributeCache& operator=(const TdynAttributeCache&) = delete;

    TanimTime time() const { return fTime; }
    void setTime(TanimTime t) { fTime = t; }
    TdynCachedAttributePtrArray& attributes() { return fAttributes; }
    const TdynCachedAttributePtrArray& attributes() const { return fAttributes; }

    TdynCachedAttribute* attribute(const Tstring& name) const {
        for (const auto& a : fAttributes)
            if (a->name() == name) return a.get();
        return nullptr;
    }
    // Adds or replaces by name.
    TdynCachedAttribute& addDoubleToCache(const Tstring& name, const TdoubleArray& values) {
        return add(std::make_unique<TdynCachedAttribute>(name, values));
    }
    TdynCachedAttribute& addVectorToCache(const Tstring& name, const T4dDblVectorArray& values) {
        return add(std::make_unique<TdynCachedAttribute>(name, values));
    }
    // The particle count the entry stands for: its longest array.
    unsigned length() const {
        unsigned n = 0;
        for (const auto& a : fAttributes)
            n = std::max(n, a->length());
        return n;
    }

private:
    TdynCachedAttribute& add(std::unique_ptr<TdynCachedAttribute> a) {
        for (auto& e : fAttributes)
            if (e->name() == a->name()) {
                e = std::move(a);
                return *e;
            }
        fAttributes.push_back(std::move(a));
        return *fAttributes.back();
    }
    TanimTime fTime;
    TdynCachedAttributePtrArray fAttributes;
};

using TdynAttributeCachePtrArray = std::vector<std::unique_ptr<TdynAttributeCache>>;
