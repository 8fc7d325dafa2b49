// The caches of one particle object and the calls its step makes to them.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Caches/TdynParticleImporter.h"
#include "Commands/Particles/TdynParticleShape.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <unordered_map>

TdynParticleCaches::TdynParticleCaches(TdynParticleShape& owner)
    : fOwner(owner), fMemory(&owner, 0, false), fDisk(&owner, 2, true) {}

namespace {
std::unordered_map<const TdynParticleShape*, std::unique_ptr<TdynParticleCaches>>& registry() {
    static std::unordered_map<const TdynParticleShape*, std::unique_ptr<TdynParticleCaches>> r;
    return r;
}
} // namespace

TdynParticleCaches& TdynParticleCaches::of(TdynParticleShape& shape) {
    auto& slot = registry()[&shape];
    if (!slot) slot = std::make_unique<TdynParticleCaches>(shape);
    return *slot;
}

void TdynParticleCaches::forget(const TdynParticleShape* shape) {
    registry().erase(shape);
}

void TdynParticleCaches::syncMemorySettings() {
    auto* vs = TdynParticleShape::sVsData();
    TdataBlock& block = fOwner.normalBlock();
    const bool on = block.outputValue(vs->cacheData).asBool();
    // Entries kept while off would be out of date when it is turned on again.
    if (!on && fMemory.isEnabled()) fMemory.deleteCache();
    fMemory.setEnabled(on);
    const int width = block.outputValue(vs->cacheWidth).asInt();
    if (width != fMemory.width()) fMemory.setCacheWidth(width);
}

bool TdynParticleCaches::restoreCachedAttributes(TdynParticleCache& cache, TanimTime time, bool interpolate) {
    TdynAttributeCache* entry = cache.getAttributeCache(time, interpolate);
    if (!entry) return false;
    TdataBlock& block = fOwner.normalBlock();
    unsigned count = 0;
    // What the object and the entry share is restored, by name.
    for (const auto& c : entry->attributes()) {
        const Tattribute* a = fOwner.perParticleAttribute(c->name());
        if (!a) continue;
        const TletterClass* kind = a->letterClasses().front();
        Tdata value;
        if (c->isVector() && kind == &TdataVectorArray::sClass) {
            value = makeData<TdataVectorArray>(*c->vectors());
        } else if (!c->isVector() && kind == &TdataDoubleArray::sClass) {
            value = makeData<TdataDoubleArray>(*c->doubles());
        } else if (!c->isVector() && kind == &TdataInt32Array::sClass) {
            Tint32Array ints(c->length());
            for (unsigned i = 0; i < ints.length(); ++i)
                ints[i] = static_cast<std::int32_t>((*c->doubles())[i]);
            value = makeData<TdataInt32Array>(std::move(ints));
        } else {
            continue;
        }
        block.outputValue(a).set(value);
        count = std::max(count, c->length());
    }
    TdataHandle n = block.outputValue(TdynParticleShape::sVsData()->count);
    n.set(static_cast<std::int32_t>(count));
    n.setClean();
    return true;
}

std::vector<std::pair<TanimTime, Tstring>>
TdynParticleCaches::getAvailableDiskCachedFrames(const Tstring& path) const {
    std::vector<std::pair<TanimTime, Tstring>> out;
    // The directory is what the naming rule puts before the object's name.
    const Tstring probe = TdynParticleImporter::fileName("", path, "", TanimTime());
    const Tstring dir = probe.substr(0, probe.size() - Tstring(".0.pdc").size());
    const Tstring prefix = fOwner.name() + ".";
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(dir, ec)) {
        const Tstring leaf = e.path().filename().string();
        if (leaf.size() <= prefix.size() + 4 || leaf.compare(0, prefix.size(), prefix) != 0 ||
            leaf.compare(leaf.size() - 4, 4, ".pdc") != 0)
            continue;
        const char* first = leaf.data() + prefix.size();
        const char* last = leaf.data() + leaf.size() - 4;
        std::int64_t ticks = 0;
        auto [ptr, err] = std::from_chars(first, last, ticks);
        if (err != std::errc() || ptr != last) continue; // another object's name that starts the same
        out.emplace_back(TanimTime::fromTicks(ticks), e.path().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

bool TdynParticleCaches::diskCacheAvailableForThisTime(const Tstring& path, TanimTime time,
                                                       TdynParticleCache& cache) {
    if (cache.getCacheFromPDCFile(time, TdynParticleImporter::fileName("", path, fOwner.name(), time)))
        return true;
    const auto frames = getAvailableDiskCachedFrames(path);
    for (std::size_t i = 0; i + 1 < frames.size(); ++i) {
        if (frames[i].first < time && time < frames[i + 1].first) {
            cache.deleteCache();
            const bool a = cache.getCacheFromPDCFile(frames[i].first, frames[i].second);
            const bool b = cache.getCacheFromPDCFile(frames[i + 1].first, frames[i + 1].second);
            return a && b;
        }
    }
    return false;
}

bool TdynParticleCaches::usingCachedAttributes(TanimTime time, const Tstring& path) {
    bool restored = false;
    if (fDisk.isEnabled()) {
        TdynGlobals* globals = TdynGlobals::activeGlobalsNode(false);
        double useDisk = 0;
        if (globals && globals->getAttributeValue(&TdynGlobals::sVsData()->useParticleDiskCache, useDisk) &&
            useDisk != 0) {
            const Tstring dir = globals->cachePath();
            if (diskCacheAvailableForThisTime(dir, time, fDisk))
                restored = restoreCachedAttributes(fDisk, time, true);
        }
        if (!restored && !path.empty() && diskCacheAvailableForThisTime(path, time, fDisk))
            restored = restoreCachedAttributes(fDisk, time, true);
    }
    if (restored) return true;
    syncMemorySettings();
    TdynParticleCache* cache = fMemory.isEnabled() ? &fMemory : fAttribute.get();
    if (!cache) return false;
    switch (cache->timeWithinCacheRange(time)) {
    case TdynParticleCache::kWithin:
        return restoreCachedAttributes(*cache, time, true);
    case TdynParticleCache::kEarlier:
        cache->clearCachedAttributes();
        break; // nothing known is valid ahead
    default:
        break;
    }
    return false;
}

bool TdynParticleCaches::cacheAttributes(TanimTime time) {
    syncMemorySettings();
    if (fMemory.isEnabled()) return fMemory.cacheCurrentState(time);
    // Only an attribute cache that was asked for: filling one on every step
    // would copy every array each step, and would put back, at the same time,
    // a state that an edit has since changed.
    return fAttribute && fAttribute->cacheCurrentState(time);
}

TdynParticleCache& TdynParticleCaches::makeAttributeCache() {
    if (!fAttribute) fAttribute = std::make_unique<TdynParticleCache>(&fOwner, 1, true);
    return *fAttribute;
}

bool TdynParticleCaches::cacheState(TanimTime time) {
    if (!fState) fState = std::make_unique<TdynParticleCache>(&fOwner, 1, true);
    return fState->cacheCurrentState(time);
}

bool TdynParticleCaches::restoreCachedState(TanimTime time) {
    TanimTime first;
    if (!fState || !fState->isEnabled() || !fState->getCacheTime(0, first) || first != time) return false;
    if (!restoreCachedAttributes(*fState, time, false)) return false;
    // The hit counter follows the kept per-particle counts, so events see no new hits on the way back.
    if (Tattribute* counts = fOwner.attribute("eventCountCache"))
        if (const TdoubleArray* c =
                TdynStatic::dataDoubleArray(fOwner.normalBlock().outputValue(counts).data())) {
            double total = 0;
            for (unsigned i = 0; i < c->length(); ++i)
                total += (*c)[i];
            TdataHandle h = fOwner.normalBlock().outputValue(TdynParticleShape::sVsData()->totalEventCount);
            h.set(static_cast<std::int32_t>(total));
            h.setClean();
        }
    return true;
}
