// The particle caches: entries by time, width, the range answers, interpolation
// through ids, and the object-level calls against a real particle object, from
// memory and from exported files.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

TanimTime frameTime(double f) {
    return TanimTime(f, kCurrentFrameUnit);
}

std::unique_ptr<TdynAttributeCache> entry(double f, std::vector<double> ids, std::vector<T4dDblVector> pos,
                                          std::vector<double> mass = {}) {
    auto e = std::make_unique<TdynAttributeCache>(frameTime(f));
    TdoubleArray id;
    for (double d : ids)
        id.addLast(d);
    T4dDblVectorArray p;
    for (const auto& v : pos)
        p.addLast(v);
    e->addDoubleToCache("particleId", id);
    e->addVectorToCache("position", p);
    if (!mass.empty()) {
        TdoubleArray m;
        for (double d : mass)
            m.addLast(d);
        e->addDoubleToCache("mass", m);
    }
    return e;
}

TEST(ParticleCache, RangeAnswersForDisabledEmptyAndOneEntry) {
    TdynParticleCache c(nullptr, 3, false);
    EXPECT_EQ(c.timeWithinCacheRange(frameTime(1)), TdynParticleCache::kDisabled);
    EXPECT_EQ(c.getAttributeCache(frameTime(1), true), nullptr);
    EXPECT_FALSE(c.storeCache(entry(1, {0}, {{0, 0, 0}})));
    c.setEnabled(true);
    EXPECT_EQ(c.timeWithinCacheRange(frameTime(1)), TdynParticleCache::kEmpty);
    ASSERT_TRUE(c.storeCache(entry(5, {0}, {{1, 0, 0}})));
    EXPECT_EQ(c.timeWithinCacheRange(frameTime(5)), TdynParticleCache::kWithin);
    EXPECT_EQ(c.timeWithinCacheRange(frameTime(6)), TdynParticleCache::kLater);
    EXPECT_EQ(c.timeWithinCacheRange(frameTime(4)), TdynParticleCache::kEarlier);
    EXPECT_EQ(c.timeWithinCacheRange(TanimTime::fromTicks(frameTime(5).ticks() + 1)),
              TdynParticleCache::kLater);
}

TEST(ParticleCache, AFullListReusesItsEarliestEntryAndStaysSortedLatestFirst) {
    TdynParticleCache c(nullptr, 3, true);
    for (int f = 1; f <= 3; ++f)
        ASSERT_TRUE(c.storeCache(entry(f, {0}, {{double(f), 0, 0}})));
    const TdynAttributeCache* oldest = c.cache(2);
    ASSERT_EQ(oldest->time(), frameTime(1));
    ASSERT_TRUE(c.storeCache(entry(4, {0}, {{4, 0, 0}})));
    ASSERT_EQ(c.length(), 3u);
    EXPECT_EQ(c.cache(0), oldest); // the same entry, now holding the newest time
    EXPECT_EQ(c.cache(0)->time(), frameTime(4));
    EXPECT_EQ((*c.attribute(0, "position")->vectors())[0].x, 4.0);
    TanimTime t;
    ASSERT_TRUE(c.getCacheTime(1, t));
    EXPECT_EQ(t, frameTime(3));
    ASSERT_TRUE(c.getCacheTime(2, t));
    EXPECT_EQ(t, frameTime(2));
    // Storing at a stored time replaces that entry in place; an earlier time
    // than all, when full, pushes out the earliest.
    ASSERT_TRUE(c.storeCache(entry(3, {0}, {{33, 0, 0}})));
    EXPECT_EQ(c.length(), 3u);
    EXPECT_EQ((*c.attribute(1, "position")->vectors())[0].x, 33.0);
    ASSERT_TRUE(c.storeCache(entry(0, {0}, {{0, 0, 0}})));
    EXPECT_EQ(c.cache(2)->time(), frameTime(0));
    EXPECT_EQ(c.cache(1)->time(), frameTime(3));
    c.setCacheWidth(1);
    EXPECT_EQ(c.length(), 1u);
    EXPECT_EQ(c.cache(0)->time(), frameTime(4));
}

TEST(ParticleCache, LookupsExactClosestUpAndDown) {
    TdynParticleCache c(nullptr, 5, true);
    for (double f : {2.0, 4.0, 8.0})
        c.storeCache(entry(f, {0}, {{f, 0, 0}}));
    int i = -1;
    EXPECT_TRUE(c.getCacheIndex(frameTime(4), i));
    EXPECT_EQ(i, 1);
    EXPECT_FALSE(c.getCacheIndex(frameTime(5), i));
    ASSERT_TRUE(c.getClosestCacheIndex(frameTime(5), i));
    EXPECT_EQ(i, 1); // 4 is one frame off, 8 three
    ASSERT_TRUE(c.getClosestCacheIndexUp(frameTime(5), i));
    EXPECT_EQ(i, 0);
    ASSERT_TRUE(c.getClosestCacheIndexDown(frameTime(5), i));
    EXPECT_EQ(i, 1);
    EXPECT_FALSE(c.getClosestCacheIndexUp(frameTime(9), i));
    EXPECT_FALSE(c.getClosestCacheIndexDown(frameTime(1), i));
    unsigned n = 0;
    EXPECT_TRUE(c.getCacheLength(2, n));
    EXPECT_EQ(n, 1u);
    EXPECT_FALSE(c.getCacheLength(3, n));
    // Between two stored times: found only when interpolation is asked for.
    EXPECT_EQ(c.getAttributeCache(frameTime(5), false), nullptr);
    EXPECT_NE(c.getAttributeCache(frameTime(5), true), nullptr);
    // Past the ends: the nearest entry, copied to the time asked.
    TdynAttributeCache* late = c.getAttributeCache(frameTime(10), true);
    ASSERT_NE(late, nullptr);
    EXPECT_EQ(late->time(), frameTime(10));
    EXPECT_EQ((*late->attribute("position")->vectors())[0].x, 8.0);
}

TEST(ParticleCache, InterpolationFollowsTheIdsThroughBirthsAndDeaths) {
    TdynParticleCache c(nullptr, 2, true);
    // At frame 0, ids 0 1 2; by frame 4 id 1 has died, id 7 is born, and the order changed.
    c.storeCache(entry(0, {0, 1, 2}, {{0, 0, 0}, {10, 10, 10}, {4, 8, 0}}, {1, 1, 1}));
    c.storeCache(entry(4, {2, 0, 7}, {{8, 0, 4}, {4, 4, 4}, {100, 200, 300}}, {3, 5, 9}));
    // Frame 1 is a quarter of the way: f = 0.25, exact in binary, so the blends are exact.
    TdynAttributeCache* r = c.getAttributeCache(frameTime(1), true);
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->time(), frameTime(1));
    const T4dDblVectorArray& p = *r->attribute("position")->vectors();
    ASSERT_EQ(p.length(), 3u);                    // the dead particle is gone
    EXPECT_EQ(p[0], T4dDblVector(5, 6, 1));       // id 2: (4,8,0) + 0.25 * (4,-8,4)
    EXPECT_EQ(p[1], T4dDblVector(1, 1, 1));       // id 0: 0.25 * (4,4,4)
    EXPECT_EQ(p[2], T4dDblVector(100, 200, 300)); // id 7, born since: the later values
    const TdoubleArray& m = *r->attribute("mass")->doubles();
    EXPECT_EQ(m[0], 1.5); // 1 + 0.25 * 2
    EXPECT_EQ(m[1], 2.0); // 1 + 0.25 * 4
    EXPECT_EQ(m[2], 9.0);
    const TdoubleArray& ids = *r->attribute("particleId")->doubles();
    EXPECT_EQ(ids[2], 7.0);
    // The stored entries are untouched.
    EXPECT_EQ((*c.attribute(0, "position")->vectors())[0], T4dDblVector(8, 0, 4));
}

TEST(ParticleCache, WithoutIdsThereIsNoInterpolation) {
    TdynParticleCache c(nullptr, 2, true);
    auto a = std::make_unique<TdynAttributeCache>(frameTime(0));
    a->addVectorToCache("position", T4dDblVectorArray(1));
    auto b = std::make_unique<TdynAttributeCache>(frameTime(2));
    b->addVectorToCache("position", T4dDblVectorArray(1));
    c.storeCache(std::move(a));
    c.storeCache(std::move(b));
    EXPECT_EQ(c.getAttributeCache(frameTime(1), true), nullptr);
    std::vector<int> map;
    EXPECT_FALSE(TdynParticleCache::buildIdMap(*c.cache(0), *c.cache(1), map));
    // Empty id arrays on both sides are fine: an empty map.
    auto e1 = entry(0, {}, {});
    auto e2 = entry(1, {}, {});
    EXPECT_TRUE(TdynParticleCache::buildIdMap(*e1, *e2, map));
    EXPECT_TRUE(map.empty());
}

// ---- on a particle object ----

class CacheScene : public DynWorkspaceTest {
protected:
    CacheScene() : DynWorkspaceTest("motilane-cache-") {}
    void SetUp() override {
        DynWorkspaceTest::SetUp();
        // Two particles at one unit a frame along x and y.
        ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 0 5 0; particle -e -id 0 -at velocity -vv 24 0 0 p;"
                        "particle -e -id 1 -at velocity -vv 0 24 0 p;"));
        shape = node<TdynParticleShape>("pShape");
        ASSERT_NE(shape, nullptr);
    }
    void TearDown() override {
        TdynParticleCaches::forget(shape);
        DynWorkspaceTest::TearDown();
    }
    T4dDblVector pos(unsigned i) {
        T4dDblVectorArray* p = shape->vectorArrayReference(TdynParticleShape::sVsData()->position);
        return p && i < p->length() ? (*p)[i] : T4dDblVector(-1e9, -1e9, -1e9);
    }
    TdynParticleShape* shape = nullptr;
};

TEST_F(CacheScene, AnEntryHoldsTheRuntimeArraysOnly) {
    TdynParticleCache c(shape, 1, true);
    frame(3);
    ASSERT_TRUE(c.cacheCurrentState(frameTime(3)));
    const TdynAttributeCache* e = c.cache(0);
    ASSERT_NE(e, nullptr);
    for (const char* n : {"position", "velocity", "particleId", "mass", "age"})
        EXPECT_NE(e->attribute(n), nullptr) << n;
    for (const char* n : {"position0", "velocity0", "cachedPosition", "cachedVelocity", "count"})
        EXPECT_EQ(e->attribute(n), nullptr) << n;
    EXPECT_EQ(e->length(), 2u);
    EXPECT_EQ((*e->attribute("position")->vectors())[1].y, pos(1).y);
}

TEST_F(CacheScene, ScrubbingBackServesTheStepsStoredInMemory) {
    ASSERT_TRUE(run("dynCache -enable on -width 10 p;"));
    TdynParticleCaches& caches = TdynParticleCaches::of(*shape);
    std::vector<T4dDblVector> steps;
    // What the step does at its end, frame by frame.
    for (int f = 1; f <= 5; ++f) {
        frame(f);
        steps.push_back(pos(0));
        ASSERT_TRUE(caches.cacheAttributes(frameTime(f)));
    }
    EXPECT_EQ(session.engine().run("dynCache", {"-q", "p"}).intArray(), std::vector<int>{5});
    // Frame 3 again: what the run had, and the count with it.
    ASSERT_TRUE(caches.usingCachedAttributes(frameTime(3)));
    EXPECT_EQ(pos(0), steps[2]);
    EXPECT_EQ(shape->normalBlock().outputValue(TdynParticleShape::sVsData()->count).asInt(), 2);
    // Half way between frames 2 and 3: the blend of the two.
    ASSERT_TRUE(caches.usingCachedAttributes(frameTime(2.5)));
    EXPECT_NEAR(pos(0).x, (steps[1].x + steps[2].x) / 2, 1e-12);
    EXPECT_NEAR(pos(1).y, 5 + (steps[1].x + steps[2].x) / 2, 1e-12);
    // Later than anything stored: the step must run.
    EXPECT_FALSE(caches.usingCachedAttributes(frameTime(6)));
    // Flushed, nothing is served.
    ASSERT_TRUE(run("dynCache -flush p;"));
    EXPECT_FALSE(caches.usingCachedAttributes(frameTime(3)));
    ASSERT_TRUE(run("dynCache -enable off p;"));
    EXPECT_FALSE(caches.memoryCache().isEnabled());
}

TEST_F(CacheScene, FilesFromAnExportPlayBackAndInterpolate) {
    ASSERT_TRUE(run("dynExport -path disk -mnf 1 -mxf 4 -f pdc p;"));
    ASSERT_TRUE(run("dynGlobals -active;")) << errors.str();
    TdynParticleCaches& caches = TdynParticleCaches::of(*shape);
    const auto files = caches.getAvailableDiskCachedFrames("disk");
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files.front().first, frameTime(1));
    EXPECT_EQ(files.back().first, frameTime(4));

    // Named path: the file of frame 3 holds x = 2 (one unit a frame from frame 1).
    ASSERT_TRUE(caches.usingCachedAttributes(frameTime(3), "disk"));
    EXPECT_NEAR(pos(0).x, 2.0, 1e-12);
    EXPECT_NEAR(pos(1).y, 7.0, 1e-12);
    // Between files: the two neighbours, blended through the ids.
    ASSERT_TRUE(caches.usingCachedAttributes(frameTime(2.2), "disk"));
    EXPECT_NEAR(pos(0).x, 1.2, 1e-12); // 550 ticks: a fifth of the way
    EXPECT_NEAR(pos(1).y, 6.2, 1e-12);
    // Outside the files there is nothing on disk.
    TdynParticleCache probe(shape, 2, true);
    EXPECT_FALSE(caches.diskCacheAvailableForThisTime("disk", frameTime(9), probe));
    EXPECT_FALSE(caches.diskCacheAvailableForThisTime("noSuchDir", frameTime(2), probe));
}

TEST_F(CacheScene, TheGlobalsDiskCacheComesFirst) {
    ASSERT_TRUE(run("dynExport -path fromGlobals -mnf 1 -mxf 3 -f pdc p;"));
    ASSERT_TRUE(run("dynGlobals -active;"));
    ASSERT_TRUE(run("setAttr dynGlobals1.useParticleDiskCache 1;"
                    "setAttr -type \"string\" dynGlobals1.cacheDirectory \"fromGlobals\";"))
        << errors.str();
    TdynParticleCaches& caches = TdynParticleCaches::of(*shape);
    // No path from the caller: the globals name the directory.
    ASSERT_TRUE(caches.usingCachedAttributes(frameTime(2)));
    EXPECT_NEAR(pos(0).x, 1.0, 1e-12);
    // Switched off, the same call finds nothing (no memory cache either).
    ASSERT_TRUE(run("setAttr dynGlobals1.useParticleDiskCache 0;"));
    EXPECT_FALSE(caches.usingCachedAttributes(frameTime(2)));
}

TEST_F(CacheScene, DynCacheRefusesWhatItCantDo) {
    EXPECT_FALSE(run("dynCache -flush;"));
    EXPECT_FALSE(run("dynCache -flush nothing;"));
    EXPECT_FALSE(run("dynCache p;"));
    EXPECT_FALSE(run("dynCache -width 0 p;"));
    EXPECT_NE(errors.str().find("-width must be 1 or more"), std::string::npos) << errors.str();
    ASSERT_TRUE(run("dynCache -all -enable on -width 3;"));
    EXPECT_EQ(TdynParticleCaches::of(*shape).memoryCache().width(), 3);
}

} // namespace
