#pragma once
// Copies of a particle object's state at several times, latest first, so that
// a time can be shown again without simulating: in memory at each step, from
// particle data files on disk, and the state at a run-up's end. A time between
// two stored ones is interpolated particle by particle through the ids.

#include "Commands/Caches/TdynAttributeCache.h"

#include <memory>

class TdynParticleShape;
class TdynParticleImporter;
class Tattribute;

class TdynParticleCache {
public:
    // Answers of timeWithinCacheRange.
    enum Range { kWithin = 0, kLater = 1, kEarlier = 2, kEmpty = 3, kDisabled = 4 };

    TdynParticleCache(TdynParticleShape* owner, int width, bool enabled)
        : fOwner(owner), fWidth(width), fEnabled(enabled) {}

    bool isEnabled() const { return fEnabled; }
    void setEnabled(bool on) { fEnabled = on; }
    int width() const { return fWidth; }
    // Frees and cuts both lists down to n.
    void setCacheWidth(int n);
    unsigned length(bool interpolated = false) const {
        return static_cast<unsigned>(list(interpolated).size());
    }

    int timeWithinCacheRange(TanimTime time) const;
    bool getCacheIndex(TanimTime time, int& index, bool interpolated = false) const;
    bool getClosestCacheIndex(TanimTime time, int& index, bool interpolated = false) const;
    bool getClosestCacheIndexUp(TanimTime time, int& index, bool interpolated = false) const;
    bool getClosestCacheIndexDown(TanimTime time, int& index, bool interpolated = false) const;
    bool getCacheTime(int index, TanimTime& time, bool interpolated = false) const;
    bool getCacheLength(int index, unsigned& length, bool interpolated = false) const;
    bool indexIsValid(int index, bool interpolated = false) const;

    // The stored entry at `time`; with `interpolate`, one built from the
    // neighbours when none is stored. Null when disabled or nothing fits.
    TdynAttributeCache* getAttributeCache(TanimTime time, bool interpolate);
    // Stores the owner's cachable arrays at `time`.
    bool cacheCurrentState(TanimTime time);
    // Stores a particle data file's arrays at `time`. False for a file that
    // can't be opened or read.
    bool getCacheFromPDCFile(TanimTime time, const Tstring& path);
    // Stores a ready entry: replaces one at the same time, else inserts,
    // reusing the earliest when full. False when disabled or of width 0.
    bool storeCache(std::unique_ptr<TdynAttributeCache> entry);

    bool interpolateCache(TanimTime time);
    bool interpolate(int indexBefore, int indexAfter, TanimTime time);
    bool interpolateUp(int index, TanimTime time);
    bool interpolateDown(int index, TanimTime time);
    // For each particle of `after`, the index in `before` of the same
    // "particleId", or -1. False when either has no "particleId" doubles.
    static bool buildIdMap(const TdynAttributeCache& before, const TdynAttributeCache& after,
                           std::vector<int>& map);

    void insertCache(std::unique_ptr<TdynAttributeCache> entry, bool interpolated = false);
    void removeCache(int index, bool interpolated = false);
    std::unique_ptr<TdynAttributeCache> copyCacheToDifferentTime(int index, TanimTime time,
                                                                 bool interpolated = false);
    TdynAttributeCache* cache(int index, bool interpolated = false) const;
    TdynCachedAttribute* attribute(int index, const Tstring& name, bool interpolated = false) const;

    void deleteCache();
    void clearCachedAttributes() { deleteCache(); }
    void clearInterpolatedCachedAttributes() { fInterpolated.clear(); }

    std::unique_ptr<TdynAttributeCache> makeNewCache(TanimTime time);
    static std::unique_ptr<TdynAttributeCache> makeNewCacheFromPDCImporter(TanimTime time,
                                                                           TdynParticleImporter& importer);
    bool isAttributeCachable(const Tattribute* attribute) const;

private:
    TdynAttributeCachePtrArray& list(bool interpolated) { return interpolated ? fInterpolated : fCaches; }
    const TdynAttributeCachePtrArray& list(bool interpolated) const {
        return interpolated ? fInterpolated : fCaches;
    }

    TdynParticleShape* fOwner;
    int fWidth;
    bool fEnabled;
    TdynAttributeCachePtrArray fCaches;       // latest first
    TdynAttributeCachePtrArray fInterpolated; // at most one
};

// The caches one particle object keeps, and what its step asks of them.
class TdynParticleCaches {
public:
    explicit TdynParticleCaches(TdynParticleShape& owner);

    TdynParticleCache& memoryCache() { return fMemory; }
    TdynParticleCache& diskCache() { return fDisk; }
    TdynParticleCache* attributeCache() { return fAttribute.get(); }
    // The attribute cache, made if absent; steps fill it from then on while the memory cache is off.
    TdynParticleCache& makeAttributeCache();
    TdynParticleCache* stateCache() { return fState.get(); }

    // At the top of a step: replaces the state by cached data for `time` when
    // some cache has it (disk files first, then memory or the attribute cache).
    bool usingCachedAttributes(TanimTime time, const Tstring& path = Tstring());
    // Loads the file for `time`, or the two files around it, into `cache`.
    bool diskCacheAvailableForThisTime(const Tstring& path, TanimTime time, TdynParticleCache& cache);
    // The object's files in a directory, by time, earliest first.
    std::vector<std::pair<TanimTime, Tstring>> getAvailableDiskCachedFrames(const Tstring& path) const;
    // Writes the entry for `time` into the object; `count` becomes the longest length.
    bool restoreCachedAttributes(TdynParticleCache& cache, TanimTime time, bool interpolate);
    // At the end of a step: the memory cache when on, else the attribute cache.
    bool cacheAttributes(TanimTime time);
    // The run-up's end state.
    bool cacheState(TanimTime time);
    bool restoreCachedState(TanimTime time);
    // copyInitialToRuntime forgets the attribute cache.
    void clearAttributeCache() {
        if (fAttribute) fAttribute->clearCachedAttributes();
    }
    // Takes cacheData and cacheWidth from the object.
    void syncMemorySettings();

    // The caches of an object; made at first use.
    static TdynParticleCaches& of(TdynParticleShape& shape);
    static void forget(const TdynParticleShape* shape);

private:
    TdynParticleShape& fOwner;
    TdynParticleCache fMemory, fDisk;
    std::unique_ptr<TdynParticleCache> fAttribute, fState;
};
