// Fields as users meet them in the program: a particle falling under gravity,
// the fields example scene, and bad field input stopping a script.

#include "ProgramRunner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

// The numbers of the first "// Result: ... //" line after `from`.
std::vector<double> resultNumbers(const std::string& out, std::size_t from = 0) {
    std::vector<double> v;
    const std::size_t at = out.find("// Result: ", from);
    if (at == std::string::npos) return v;
    const std::size_t begin = at + 11, end = out.find(" //", begin);
    if (end == std::string::npos) return v;
    std::istringstream in(std::string(out, begin, end - begin));
    double x;
    while (in >> x)
        v.push_back(x);
    return v;
}

TEST(FieldProgram, AParticleFallsUnderGravityFrameByFrame) {
    ProgramRun r = runProgram({"-c", "particle -n p -p 0 0 0; gravity -n g; connectDynamic -f g p;"
                                     "for ($f = 2; $f <= 25; $f++) currentTime $f;"
                                     "getParticleAttr -at position p;"});
    ASSERT_EQ(r.status, 0) << r.err;
    // Each command that returns something prints a result: the gravity's name, connectDynamic's list, the
    // position.
    const std::size_t last = r.out.rfind("// Result: ");
    const std::vector<double> p = resultNumbers(r.out, last);
    ASSERT_EQ(p.size(), 3u) << r.out;
    // 24 steps of 1/24 s from rest: y = -9.8 (1/24)^2 * 24 * 25 / 2; printed to the shortest exact form.
    EXPECT_NEAR(p[1], -9.8 / 576.0 * 300.0, 1e-12);
    EXPECT_EQ(p[0], 0);
    EXPECT_EQ(p[2], 0);
}

// A velocity set at the start frame is where the run begins: drag feels it from the first step, whether it
// was set by setParticleAttr and kept by saveInitialState or by particle -e.
TEST(FieldProgram, DragFeelsAVelocitySetAtTheStartFromTheFirstStep) {
    const char* setters[] = {"setParticleAttr -at velocity -vv 10 0 0 pShape.pt[0]; saveInitialState pShape;",
                             "particle -e -id 0 -at velocity -vv 10 0 0 p;"};
    for (const char* set : setters) {
        ProgramRun r = runProgram({"-c", std::string("particle -p 0 0 0 -n p;") + set +
                                             "drag -n d -m 5; connectDynamic -f d p;"
                                             "for ($f = 2; $f <= 25; $f++) currentTime $f;"
                                             "getParticleAttr -at velocity p;"});
        ASSERT_EQ(r.status, 0) << set << "\n" << r.err;
        const std::vector<double> v = resultNumbers(r.out, r.out.rfind("// Result: "));
        ASSERT_EQ(v.size(), 3u) << r.out;
        const double expected = 10.0 * std::pow(1.0 - 5.0 / 24.0, 24);
        EXPECT_NEAR(v[0], expected, 1e-12 * expected) << set;
    }
}

TEST(FieldProgram, TheFieldsExampleRunsAndMovesItsParticles) {
    ProgramRun r = runProgram({std::string(MOTILANE_SOURCE_DIR) + "/examples/fields.mls"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("frame 48, the spray's middle particle at "), std::string::npos) << r.out;
    // Without fields the middle particle would rise straight up: the vortex and the turbulence move it aside.
    EXPECT_EQ(r.out.find("middle particle at 0 "), std::string::npos) << r.out;
}

TEST(FieldProgram, BadFieldInputStopsTheScriptWithAMessage) {
    std::string script =
        writeScript("badfield.mls", "particle -n p;\nuniform -vsh blob;\nprint \"after\\n\";\n");
    ProgramRun r = runProgram({script});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("badfield.mls:2: uniform: unknown volume shape 'blob'"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("after"), std::string::npos);

    r = runProgram(
        {"-c", "particle -n p; gravity -n g; createNode transform -n box; connectDynamic -f g box;"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("connectDynamic: 'box' is not a dynamic object"), std::string::npos) << r.err;
}

} // namespace
