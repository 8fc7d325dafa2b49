// Playback through the particle step: frames served from the memory cache and
// from exported files take no step of their own.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class CachePlayback : public DynWorkspaceTest {
protected:
    CachePlayback() : DynWorkspaceTest("motilane-playback-") {}
    void SetUp() override {
        DynWorkspaceTest::SetUp();
        // One particle at one unit a frame along x.
        ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p;"));
        shape = node<TdynParticleShape>("pShape");
        ASSERT_NE(shape, nullptr);
    }
    void TearDown() override {
        TdynParticleCaches::forget(shape);
        DynWorkspaceTest::TearDown();
    }
    // One coordinate of every particle's position.
    std::vector<double> coordinate(int k) {
        std::vector<double> out;
        if (T4dDblVectorArray* p = shape->vectorArrayValue(TdynParticleShape::sVsData()->position))
            for (const T4dDblVector& v : *p)
                out.push_back(v[k]);
        return out;
    }
    std::vector<double> xs() { return coordinate(0); }
    std::vector<double> ys() { return coordinate(1); }
    TdynParticleShape* shape = nullptr;
};

TEST_F(CachePlayback, ScrubbingBackServesCachedFramesWithoutStepping) {
    ASSERT_TRUE(run("dynCache -enable on -width 10 p;"));
    std::vector<std::vector<double>> steps;
    for (int f = 1; f <= 6; ++f) {
        frame(f);
        if (f == 4) {
            ASSERT_TRUE(run("emit -object p -pos 10 0 0 -at velocity -vv 24 0 0;"));
        }
        steps.push_back(xs());
    }
    ASSERT_EQ(steps[5].size(), 2u);
    const std::uint64_t taken = shape->stepCount();
    for (int f : {3, 1, 5, 2}) {
        frame(f);
        EXPECT_EQ(xs(), steps[static_cast<std::size_t>(f - 1)]) << "frame " << f;
    }
    EXPECT_EQ(shape->stepCount(), taken); // no step was taken to show them
    // Between frames 4 and 5 the state is the blend of the two through the ids:
    // particle 0 half way, the one emitted at 4 from its frame-4 place.
    frame(4.5);
    const std::vector<double> mid = xs();
    ASSERT_EQ(mid.size(), steps[4].size());
    EXPECT_NEAR(mid[0], (steps[3][0] + steps[4][0]) / 2, 1e-12);
    // The emitted particle came after frame 4 was cached: it is born between
    // the two entries and keeps the later one's value.
    EXPECT_EQ(mid[1], steps[4][1]);
    EXPECT_EQ(shape->stepCount(), taken);
    // Past the cached frames the simulation goes on from the latest one.
    frame(7);
    EXPECT_EQ(shape->stepCount(), taken + 1);
    EXPECT_NEAR(xs()[0], steps[5][0] + 1, 1e-12);
}

TEST_F(CachePlayback, TheParticleCommandStartsAndDeletesTheCache) {
    ASSERT_TRUE(run("particle -e -cache on p; particle -e -deleteCache p;"));
    TdynParticleCache& memory = TdynParticleCaches::of(*shape).memoryCache();
    for (int f = 1; f <= 3; ++f)
        frame(f);
    EXPECT_TRUE(memory.isEnabled());
    EXPECT_EQ(memory.length(), 3u);
    ASSERT_TRUE(run("particle -e -deleteCache p;"));
    EXPECT_EQ(memory.length(), 0u);
    // Back to frame 2 with nothing cached: the object is evaluated anew, and that goes into the cache.
    frame(2);
    EXPECT_EQ(memory.length(), 1u);
    // Turned off, caching stops and what was kept is forgotten.
    ASSERT_TRUE(run("particle -e -cache off p;"));
    frame(3);
    EXPECT_FALSE(memory.isEnabled());
    EXPECT_EQ(memory.length(), 0u);
}

TEST_F(CachePlayback, FilesFromAnEarlierExportAreWhatTheObjectShows) {
    ASSERT_TRUE(run("dynExport -path disk -mnf 1 -mxf 4 -f pdc p;"));
    // Change the object so that a step could not give the files' values.
    ASSERT_TRUE(run("particle -e -id 0 -at velocity -vv 0 0 0 p; dynGlobals -active;"
                    "setAttr dynGlobals1.useParticleDiskCache 1;"
                    "setAttr -type \"string\" dynGlobals1.cacheDirectory \"disk\";"));
    const std::uint64_t taken = shape->stepCount();
    frame(3);
    EXPECT_EQ(xs(), std::vector<double>{2.0});
    frame(2.2); // 550 ticks: a fifth of the way from frame 2 to frame 3
    ASSERT_EQ(xs().size(), 1u);
    EXPECT_NEAR(xs()[0], 1.2, 1e-12);
    EXPECT_EQ(shape->stepCount(), taken);
}

TEST_F(CachePlayback, ARunupWithStateIsWhereALaterReturnLands) {
    // One unit a frame: the run-up ends at x = 9 on frame 10.
    ASSERT_TRUE(run("runup -mxf 10 -state;"));
    ASSERT_EQ(xs(), std::vector<double>{9.0});
    frame(12);
    ASSERT_EQ(xs(), std::vector<double>{11.0});
    // Back to frame 10 with no run-up preference: only the kept state can bring it there.
    frame(10);
    EXPECT_EQ(xs(), std::vector<double>{9.0});
    // A run-up from the start to a time the scene holds replays nothing before it.
    frame(12);
    const std::uint64_t before = shape->stepCount();
    ASSERT_TRUE(run("runup -mxf 10 -fsf;"));
    EXPECT_EQ(xs(), std::vector<double>{9.0});
    EXPECT_LE(shape->stepCount(), before + 1);
}

TEST_F(CachePlayback, AnEditForgetsTheKeptStateAndWarnsOfAStaleMemoryCache) {
    ASSERT_TRUE(run("runup -mxf 10 -state;"));
    frame(12);
    ASSERT_TRUE(run("setAttr pShape.conserve 0.5;"));
    // The kept state no longer matches the object: a return without a run-up keeps the present state.
    frame(10);
    EXPECT_EQ(xs(), std::vector<double>{11.0});
    EXPECT_EQ(errors.str().find("memory cache"), std::string::npos);
    ASSERT_TRUE(run("dynCache -enable on -width 10 p; setAttr pShape.conserve 1;"));
    EXPECT_NE(errors.str().find("memory cache is on"), std::string::npos) << errors.str();
}

TEST_F(CachePlayback, TheKeptStateSetsTheHitCounterFromTheKeptCounts) {
    ASSERT_TRUE(run("addAttr -ln eventCountCache -dt doubleArray pShape;"
                    "setAttr pShape.eventCountCache -type doubleArray 2 1 2;"
                    "runup -mxf 5 -state;"));
    frame(8);
    frame(5);
    EXPECT_EQ(xs(), std::vector<double>{4.0});
    EXPECT_EQ(shape->normalBlock().outputValue(TdynParticleShape::sVsData()->totalEventCount).asInt(), 3);
}

TEST_F(CachePlayback, OverSampledStepsAreServedToo) {
    // Under gravity the half-frame state is not the blend of its two frames, so only the cached step matches.
    ASSERT_TRUE(
        run("gravity -n g; connectDynamic -f g p; dynGlobals -os 2; dynCache -enable on -width 20 p;"));
    std::vector<std::pair<double, std::vector<double>>> steps;
    for (double f = 1; f <= 5; f += 0.5) {
        frame(f);
        steps.push_back({f, ys()});
    }
    const std::uint64_t taken = shape->stepCount();
    for (const auto& [f, y] : {steps[5], steps[2], steps[8]}) {
        frame(f);
        EXPECT_EQ(ys(), y) << "frame " << f;
    }
    EXPECT_EQ(shape->stepCount(), taken);
}

} // namespace
