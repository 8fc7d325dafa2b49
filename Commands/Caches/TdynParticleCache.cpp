#include "Commands/Caches/TdynParticleCache.h"

#include "Commands/Caches/TdynParticleImporter.h"
#include "Commands/Particles/TdynParticleShape.h"

#include <algorithm>
#include <cmath>

void TdynParticleCache::setCacheWidth(int n) {
    fWidth = n;
    const std::size_t keep = static_cast<std::size_t>(std::max(n, 0));
    if (fCaches.size() > keep) fCaches.resize(keep);
    if (fInterpolated.size() > keep) fInterpolated.resize(keep);
}

int TdynParticleCache::timeWithinCacheRange(TanimTime time) const {
    if (!fEnabled) return kDisabled;
    if (fCaches.empty()) return kEmpty;
    if (time > fCaches.front()->time()) return kLater;
    if (time < fCaches.back()->time()) return kEarlier;
    return kWithin;
}

bool TdynParticleCache::indexIsValid(int index, bool interpolated) const {
    return index >= 0 && static_cast<std::size_t>(index) < list(interpolated).size();
}

TdynAttributeCache* TdynParticleCache::cache(int index, bool interpolated) const {
    return indexIsValid(index, interpolated) ? list(interpolated)[static_cast<std::size_t>(index)].get()
                                             : nullptr;
}

bool TdynParticleCache::getCacheIndex(TanimTime time, int& index, bool interpolated) const {
    const auto& l = list(interpolated);
    // From the earliest entry up; past `time` nothing can match.
    for (int i = static_cast<int>(l.size()) - 1; i >= 0; --i) {
        const TanimTime t = l[static_cast<std::size_t>(i)]->time();
        if (t == time) {
            index = i;
            return true;
        }
        if (t > time) break;
    }
    return false;
}

bool TdynParticleCache::getClosestCacheIndex(TanimTime time, int& index, bool interpolated) const {
    const auto& l = list(interpolated);
    if (l.empty()) return false;
    std::int64_t best = -1;
    for (std::size_t i = 0; i < l.size(); ++i) {
        const std::int64_t d = std::llabs((l[i]->time() - time).ticks());
        if (best < 0 || d < best) {
            best = d;
            index = static_cast<int>(i);
        }
    }
    return true;
}

bool TdynParticleCache::getClosestCacheIndexUp(TanimTime time, int& index, bool interpolated) const {
    const auto& l = list(interpolated);
    for (int i = static_cast<int>(l.size()) - 1; i >= 0; --i)
        if (l[static_cast<std::size_t>(i)]->time() >= time) {
            index = i;
            return true;
        }
    return false;
}

bool TdynParticleCache::getClosestCacheIndexDown(TanimTime time, int& index, bool interpolated) const {
    const auto& l = list(interpolated);
    for (std::size_t i = 0; i < l.size(); ++i)
        if (l[i]->time() <= time) {
            index = static_cast<int>(i);
            return true;
        }
    return false;
}

bool TdynParticleCache::getCacheTime(int index, TanimTime& time, bool interpolated) const {
    if (!indexIsValid(index, interpolated)) return false;
    time = cache(index, interpolated)->time();
    return true;
}

bool TdynParticleCache::getCacheLength(int index, unsigned& length, bool interpolated) const {
    if (!indexIsValid(index, interpolated)) return false;
    length = cache(index, interpolated)->length();
    return true;
}

TdynCachedAttribute* TdynParticleCache::attribute(int index, const Tstring& name, bool interpolated) const {
    TdynAttributeCache* c = cache(index, interpolated);
    return c ? c->attribute(name) : nullptr;
}

TdynAttributeCache* TdynParticleCache::getAttributeCache(TanimTime time, bool interpolate) {
    if (!fEnabled) return nullptr;
    int index = -1;
    if (getCacheIndex(time, index)) return cache(index);
    if (!interpolate) return nullptr;
    if (getCacheIndex(time, index, true)) return cache(index, true);
    return interpolateCache(time) ? fInterpolated.front().get() : nullptr;
}

void TdynParticleCache::insertCache(std::unique_ptr<TdynAttributeCache> entry, bool interpolated) {
    auto& l = list(interpolated);
    const std::size_t width = interpolated ? 1 : static_cast<std::size_t>(std::max(fWidth, 0));
    if (width == 0) return;
    while (l.size() >= width)
        l.pop_back();
    auto at = std::find_if(l.begin(), l.end(), [&](const auto& e) { return e->time() < entry->time(); });
    l.insert(at, std::move(entry));
}

void TdynParticleCache::removeCache(int index, bool interpolated) {
    if (indexIsValid(index, interpolated)) list(interpolated).erase(list(interpolated).begin() + index);
}

std::unique_ptr<TdynAttributeCache> TdynParticleCache::copyCacheToDifferentTime(int index, TanimTime time,
                                                                                bool interpolated) {
    TdynAttributeCache* c = cache(index, interpolated);
    if (!c) return nullptr;
    auto copy = std::make_unique<TdynAttributeCache>(*c);
    copy->setTime(time);
    return copy;
}

void TdynParticleCache::deleteCache() {
    fCaches.clear();
    fInterpolated.clear();
}

bool TdynParticleCache::storeCache(std::unique_ptr<TdynAttributeCache> entry) {
    if (!fEnabled || fWidth <= 0 || !entry) return false;
    fInterpolated.clear(); // built from entries that may be about to change
    int index = -1;
    if (getCacheIndex(entry->time(), index)) {
        fCaches[static_cast<std::size_t>(index)] = std::move(entry);
        return true;
    }
    if (fCaches.size() >= static_cast<std::size_t>(fWidth)) {
        // Full: the earliest entry takes the new contents and moves to its place.
        std::unique_ptr<TdynAttributeCache> reused = std::move(fCaches.back());
        fCaches.pop_back();
        reused->setTime(entry->time());
        reused->attributes() = std::move(entry->attributes());
        entry = std::move(reused);
    }
    insertCache(std::move(entry));
    return true;
}

bool TdynParticleCache::cacheCurrentState(TanimTime time) {
    if (!fEnabled || !fOwner) return false;
    return storeCache(makeNewCache(time));
}

bool TdynParticleCache::getCacheFromPDCFile(TanimTime time, const Tstring& path) {
    if (!fEnabled) return false;
    TdynParticleImporterPDC importer(path);
    if (!importer.isOpen()) return false; // a miss, not an error
    if (importer.readHeader() != 0 || importer.readAttributes() != 0) return false;
    return storeCache(makeNewCacheFromPDCImporter(time, importer));
}

bool TdynParticleCache::interpolateCache(TanimTime time) {
    clearInterpolatedCachedAttributes();
    int below = -1, above = -1;
    const bool haveBelow = getClosestCacheIndexDown(time, below);
    const bool haveAbove = getClosestCacheIndexUp(time, above);
    if (haveBelow && haveAbove) return interpolate(below, above, time);
    if (haveBelow) return interpolateUp(below, time);
    if (haveAbove) return interpolateDown(above, time);
    return false;
}

bool TdynParticleCache::interpolateUp(int index, TanimTime time) {
    auto copy = copyCacheToDifferentTime(index, time);
    if (!copy) return false;
    insertCache(std::move(copy), true);
    return true;
}

bool TdynParticleCache::interpolateDown(int index, TanimTime time) {
    return interpolateUp(index, time);
}

bool TdynParticleCache::buildIdMap(const TdynAttributeCache& before, const TdynAttributeCache& after,
                                   std::vector<int>& map) {
    const TdynCachedAttribute* a = before.attribute("particleId");
    const TdynCachedAttribute* b = after.attribute("particleId");
    if (!a || !b || !a->doubles() || !b->doubles()) return false;
    const TdoubleArray& ida = *a->doubles();
    const TdoubleArray& idb = *b->doubles();
    map.assign(idb.length(), -1);
    std::vector<std::pair<double, int>> sorted(ida.length());
    for (unsigned i = 0; i < ida.length(); ++i)
        sorted[i] = {ida[i], static_cast<int>(i)};
    std::sort(sorted.begin(), sorted.end());
    for (unsigned i = 0; i < idb.length(); ++i) {
        auto it = std::lower_bound(sorted.begin(), sorted.end(), std::make_pair(idb[i], -1));
        if (it != sorted.end() && it->first == idb[i]) map[i] = it->second;
    }
    return true;
}

namespace {
template <class T>
void blend(T* out, const T* later, const T* earlier, unsigned n, unsigned earlierLength, const int* map,
           double f) {
    for (unsigned i = 0; i < n; ++i) {
        const int j = map[i];
        if (j >= 0 && static_cast<unsigned>(j) < earlierLength)
            out[i] = (later[i] - earlier[j]) * f + earlier[j];
    }
}
} // namespace

bool TdynParticleCache::interpolate(int indexBefore, int indexAfter, TanimTime time) {
    TdynAttributeCache* A = cache(indexBefore);
    TdynAttributeCache* B = cache(indexAfter);
    if (!A || !B) return false;
    std::vector<int> map;
    if (!buildIdMap(*A, *B, map)) return false;
    const double span = (B->time() - A->time()).seconds();
    const double f = std::fabs(span) <= 1e-10 ? 1.0 : (time - A->time()).seconds() / span;
    // The later entry gives the result its particles: one born in between keeps
    // its values there, one that died in between is gone.
    auto result = copyCacheToDifferentTime(indexAfter, time);
    for (auto& r : result->attributes()) {
        if (r->name() == "particleId") continue;
        const TdynCachedAttribute* a = A->attribute(r->name());
        const TdynCachedAttribute* b = B->attribute(r->name());
        if (!a || !b || a->isVector() != r->isVector()) continue;
        const unsigned n = std::min({r->length(), b->length(), static_cast<unsigned>(map.size())});
        if (r->isVector())
            blend(r->vectors()->data(), b->vectors()->data(), a->vectors()->data(), n, a->length(),
                  map.data(), f);
        else
            blend(r->doubles()->data(), b->doubles()->data(), a->doubles()->data(), n, a->length(),
                  map.data(), f);
    }
    insertCache(std::move(result), true);
    return true;
}

bool TdynParticleCache::isAttributeCachable(const Tattribute* a) const {
    if (!a || a->type() != TattrType::Typed || a->isArray() || a->letterClasses().size() != 1) return false;
    const TletterClass* c = a->letterClasses().front();
    if (c != &TdataDoubleArray::sClass && c != &TdataVectorArray::sClass) return false;
    if (TdynParticleShape::isInitialStateOrCacheAttribute(a)) return false;
    if (TdynParticleShape::isInComputeExclusionList(a) ||
        TdynParticleShape::isInSamplerPerParticleDataExclusionList(a))
        return false;
    if (fOwner && fOwner->hasNonExprInputConnection(a)) return false;
    const Tstring& n = a->name();
    return !(n.size() > 6 && n.compare(0, 6, "cached") == 0);
}

std::unique_ptr<TdynAttributeCache> TdynParticleCache::makeNewCache(TanimTime time) {
    auto entry = std::make_unique<TdynAttributeCache>(time);
    if (!fOwner) return entry;
    TdataBlock& block = fOwner->normalBlock();
    for (unsigned i = 0; i < fOwner->attributeCount(); ++i) {
        const Tattribute* a = fOwner->attribute(i);
        if (!isAttributeCachable(a)) continue;
        // outputValue: the step calls this at its end and must not start another.
        const Tdata& d = block.outputValue(a).data();
        if (const auto* v = d.as<TdataVectorArray>())
            entry->addVectorToCache(a->name(), v->array());
        else if (const auto* x = d.as<TdataDoubleArray>())
            entry->addDoubleToCache(a->name(), x->array());
    }
    return entry;
}

std::unique_ptr<TdynAttributeCache>
TdynParticleCache::makeNewCacheFromPDCImporter(TanimTime time, TdynParticleImporter& importer) {
    auto entry = std::make_unique<TdynAttributeCache>(time);
    TdataArrayAttrs& arrays = importer.arrays();
    for (unsigned i = 0; i < arrays.count(); ++i) {
        switch (arrays.kind(i)) {
        case TdataArrayAttrs::Kind::Vector:
            entry->addVectorToCache(arrays.name(i), arrays.vectors(i));
            break;
        case TdataArrayAttrs::Kind::Double:
            entry->addDoubleToCache(arrays.name(i), arrays.doubles(i));
            break;
        case TdataArrayAttrs::Kind::Int32: {
            TdoubleArray d(arrays.ints(i).length());
            for (unsigned k = 0; k < d.length(); ++k)
                d[k] = arrays.ints(i)[k];
            entry->addDoubleToCache(arrays.name(i), d);
            break;
        }
        default:
            break;
        }
    }
    return entry;
}
