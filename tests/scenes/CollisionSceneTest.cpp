// Collisions and events as users meet them in the program: a bounce worked
// out by hand, the event procedure of a scene script, the collisions example,
// and bad input.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// The numbers of the last "// Result: ... //" line.
std::vector<double> lastResult(const std::string& out) {
    std::vector<double> v;
    const std::size_t at = out.rfind("// Result: ");
    if (at == std::string::npos) return v;
    const std::size_t begin = at + 11, end = out.find(" //", begin);
    std::istringstream in(std::string(out, begin, end - begin));
    double x;
    while (in >> x)
        v.push_back(x);
    return v;
}

// A particle is never taken through a surface by its own birth: a jet on the ground, a surface emitter
// on a colliding floor, a jet just above the ground. Every particle ends on the side it was born on.
TEST(CollisionScene, BirthsNearAColliderStayOnTheirSide) {
    const char* count = R"(
        global proc int below(string $object, float $level) {
            float $p[] = `getParticleAttr -at position $object`;
            int $n = 0;
            for ($i = 1; $i < size($p); $i += 3) if ($p[$i] < $level - 1e-9) $n++;
            return $n;
        }
    )";
    const std::string scene = std::string(count) + R"(
        polyPlane -n ground -w 20 -h 20;
        particle -n drops;
        emitter -n jet -type dir -pos 0 0 0 -r 48 -dx 0 -dy 1 -dz 0 -spd 6 -sp 0.2;
        connectDynamic -em jet drops;
        polyPlane -n floor -w 2 -h 2; move 30 0 0 floor;
        particle -n flakes; select -r floor; emitter -n shed -type surface -r 20 -spd 2; select -cl;
        connectDynamic -em shed flakes;
        polyPlane -n low -w 20 -h 20; move 0 -5 0 low;
        particle -n up;
        emitter -n jet2 -type dir -pos 3 -4.9 0 -r 96 -dx 0 -dy 1 -dz 0 -spd 6 -sp 0.2;
        connectDynamic -em jet2 up;
        select -r drops flakes up; gravity; select -cl;
        collision -r 0.5 -f 0.2 ground drops;
        collision -r 0.5 -f 0.2 floor flakes;
        collision -r 0.5 -f 0.2 low up;
        for ($f = 2; $f <= 48; $f++) currentTime $f;
        print ("drops " + `particle -q -ct drops` + " " + below("drops", 0) + "\n");
        print ("flakes " + `particle -q -ct flakes` + " " + below("flakes", 0) + "\n");
        print ("up " + `particle -q -ct up` + " " + below("up", -5) + "\n");
    )";
    ProgramRun r = runProgram({writeScript("births.mls", scene)});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* object : {"drops ", "flakes ", "up "}) {
        const std::size_t at = r.out.find(object);
        ASSERT_NE(at, std::string::npos) << r.out;
        std::istringstream line(r.out.substr(at + std::string(object).size()));
        int made = 0, under = -1;
        line >> made >> under;
        EXPECT_GT(made, 20) << object;
        EXPECT_EQ(under, 0) << object << "of " << made << " went through";
    }
}

// Resilience and friction are checked alike: outside their meaning both are refused, naming the value.
TEST(CollisionScene, ResilienceAndFrictionRangesAreCheckedAlike) {
    const std::pair<const char*, const char*> refused[] = {
        {"-r -3", "-resilience must lie between -1 and 2, got -3"},
        {"-r 2.5", "-resilience must lie between -1 and 2, got 2.5"},
        {"-f 7", "-friction must lie between 0 and 1, got 7"},
        {"-f -0.1", "-friction must lie between 0 and 1, got -0.1"},
    };
    for (const auto& [flags, message] : refused) {
        ProgramRun r =
            runProgram({"-c", std::string("polyPlane -n g; particle -n p; collision ") + flags + " g p"});
        EXPECT_EQ(r.status, 1) << flags;
        EXPECT_NE(r.err.find(message), std::string::npos) << flags << ": " << r.err;
    }
    // A negative resilience lets particles through the surface, slowed: a meaning, so it is taken.
    ProgramRun r =
        runProgram({"-c", "polyPlane -n g; particle -n p; collision -r -0.5 -f 1 g p; collision -q -r g"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("// Result: -0.5 //"), std::string::npos) << r.out;
}

TEST(CollisionScene, AParticleBouncesOffAPlaneWithHalfItsSpeed) {
    // 12 units a second from y = 0.75: 0.25 at frame 2, the plane at half of the next step. It leaves at
    // 6 units a second from 0.01 above the hit and flies the remaining half step: 0.01 + 6 / 48.
    ProgramRun r =
        runProgram({"-c", "polyPlane -n ground -w 10 -h 10; particle -n p -p 0.5 0.75 0;"
                          "particle -e -id 0 -at velocity -vv 0 -12 0 p; collision -r 0.5 ground p;"
                          "currentTime 2; currentTime 3; getParticleAttr -at velocity p;"
                          "getParticleAttr -at position p;"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<double> p = lastResult(r.out);
    ASSERT_EQ(p.size(), 3u) << r.out;
    EXPECT_NEAR(p[1], 0.01 + 6.0 / 48.0, 1e-12);
    EXPECT_NEAR(p[0], 0.5, 1e-12);
    EXPECT_NE(r.out.find("// Result: 0 6 0 //"), std::string::npos) << r.out;
}

TEST(CollisionScene, AGlobalProcReceivesTheObjectTheIdAndTheShape) {
    std::string script = writeScript("proc.mls", R"(
global proc hit(string $object, int $id, string $shape) {
    print ("[" + $object + "|" + $id + "|" + $shape + "]\n");
}
polyPlane -n ground -w 10 -h 10;
particle -n p -p 0 0.2 0 -p 1 0.3 0;
particle -e -id 1 -at velocity -vv 0 -12 0 p;
collision ground p;
event -pr hit p;
for ($f = 2; $f <= 4; $f++) currentTime $f;
)");
    ProgramRun r = runProgram({script});
    ASSERT_EQ(r.status, 0) << r.err;
    // Particle 1 alone moves, and hits once; the shape's name comes with the blank the call puts before it.
    EXPECT_EQ(r.out, "[pShape|1| groundShape]\n");
}

TEST(CollisionScene, TheExampleSplitsOnTheSecondHitOnTheGroundAndTheBox) {
    ProgramRun r = runProgram({std::string(MOTILANE_SOURCE_DIR) + "/examples/collisions.mls"});
    ASSERT_EQ(r.status, 0) << r.err;
    int splits = -1, onBox = -1, fountain = -1, shards = -1;
    const std::size_t at = r.out.find("splits: ");
    ASSERT_NE(at, std::string::npos) << r.out;
    ASSERT_EQ(std::sscanf(r.out.c_str() + at,
                          "splits: %d, on the box: %d\nfountain particles: %d, shards: %d", &splits, &onBox,
                          &fountain, &shards),
              4)
        << r.out;
    EXPECT_GT(splits, 0);
    EXPECT_GT(onBox, 0);
    // 160 emitted; each split ends its parent, and shards die on landing.
    EXPECT_EQ(fountain + splits, 160);
    EXPECT_LE(shards, 3 * splits);
    EXPECT_NE(r.out.find("split of fountainShape particle "), std::string::npos) << r.out;
}

TEST(CollisionScene, ARunFromTheStartAgainRepeatsBouncesSplitsAndSpreadExactly) {
    // Random splits with a spread draw from the event stream, which the start restores from its seed.
    std::string script = writeScript("again.mls", R"(
polyPlane -n ground -w 20 -h 20;
particle -n rain;
particle -n bits -i 0.8;
select -r rain bits; gravity -n pull; select -cl;
collision -r 0.7 -f 0.1 ground rain bits;
event -ct 2 -spl 4 -r 1 -sp 0.5 -t bits rain;
proc string run() {
    currentTime 1;
    for ($f = 2; $f <= 60; $f++) {
        currentTime $f;
        if ($f <= 10) emit -object rain -pos (0.3 * $f) 3 0 -at velocity -vv 1 -2 (0.1 * $f);
    }
    float $p[] = `getParticleAttr -at position bits`;
    string $s = (`particle -q -ct rain` + " " + `particle -q -ct bits`);
    for ($x in $p) $s += " " + $x;
    return $s;
}
string $first = run();
string $second = run();
print ("same: " + ($first == $second) + ", bits: " + `particle -q -ct bits` + "\n");
)");
    ProgramRun r = runProgram({script});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("same: 1, bits: "), std::string::npos) << r.out;
    // Something was split, or the comparison proves nothing.
    EXPECT_EQ(r.out.find("bits: 0\n"), std::string::npos) << r.out;
}

TEST(CollisionScene, BadInputNamesWhatIsWrongAndAFailingProcLetsTheRunGoOn) {
    ProgramRun r = runProgram({"-c", "gravity -n g; collision g;"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("'g' has no geometry to collide with"), std::string::npos) << r.err;

    r = runProgram({"-c", "particle -n p; gravity -n g; event -t g p;"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("the target 'g' is not a particle object"), std::string::npos) << r.err;

    r = runProgram({"-c", "polyPlane -n ground -w 10 -h 10; particle -n p -p 0 0.2 0 -p 1 0.2 0;"
                          "setParticleAttr -at velocity -vv 0 -12 0 p; collision ground p;"
                          "event -pr missingProc -die 1 p; for ($f = 2; $f <= 4; $f++) currentTime $f;"
                          "print (\"alive: \" + `particle -q -ct p`);"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("event procedure 'missingProc' of pShape failed"), std::string::npos) << r.err;
    // The procedure failed, the event still killed both.
    EXPECT_NE(r.out.find("alive: 0"), std::string::npos) << r.out;
}

} // namespace
