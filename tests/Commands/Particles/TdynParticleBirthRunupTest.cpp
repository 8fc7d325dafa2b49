// Births from emitter batches and geometry, added per-particle attributes,
// goal details, the run-up functions and the scene-wide dynamics commands.

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Dag/Ttransform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <sstream>

namespace {

constexpr double kFrame = 1.0 / 24.0;

class ParticleMoreTest : public DynSceneTest {
protected:
    // A batch as an emitter hands it over on newParticles[element], every step.
    void setBatch(TdynParticleShape* p, int element, const T4dDblVectorArray& positions,
                  const TdoubleArray& timeInStep = {}, const T4dDblVectorArray& velocities = {}) {
        Tdata d = makeData<TdataArrayAttrs>();
        auto* b = d.as<TdataArrayAttrs>();
        b->addVectorData("position") = positions;
        if (timeInStep.length()) b->addDoubleData("timeInStep") = timeInStep;
        if (velocities.length()) b->addVectorData("velocity") = velocities;
        putCached(p, TdynParticleShape::sVsData()->newParticles, d, element);
    }
};

// ---- births ----

TEST_F(ParticleMoreTest, EmitterBatchesCarryEmitterIdsAndBirthTimesWithinTheStep) {
    ASSERT_TRUE(run("particle -n p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setBatch(p, 0, {{0, 0, 0}, {1, 0, 0}}, {1.0, 0.0});
    setBatch(p, 3, {{2, 0, 0}});
    frame(2);
    ASSERT_EQ(p->countNoCompute(), 3u);
    // Emitted before the integrator: the newcomers took this step's motion (none here).
    EXPECT_EQ(num(p, "emitterId", 0), 0);
    EXPECT_EQ(num(p, "emitterId", 1), 0);
    EXPECT_EQ(num(p, "emitterId", 2), 3);
    const double T = TanimTime(2.0, kCurrentFrameUnit).seconds();
    const double H = (TanimTime(2.0, kCurrentFrameUnit) - TanimTime(1.0, kCurrentFrameUnit)).seconds();
    EXPECT_EQ(num(p, "birthTime", 0), T);     // timeInStep 1: the end of the step
    EXPECT_EQ(num(p, "birthTime", 1), T - H); // timeInStep 0: its start
    EXPECT_EQ(num(p, "birthTime", 2), T);     // a batch without it: the step's end
    EXPECT_EQ(num(p, "mass", 2), 1.0);
    EXPECT_EQ(num(p, "age", 1), H);
    // Each step the emitters run again.
    frame(3);
    EXPECT_EQ(p->countNoCompute(), 6u);
    EXPECT_EQ(num(p, "particleId", 5), 5);
}

TEST_F(ParticleMoreTest, WorldSpaceBatchesComeIntoTheObjectsSpace) {
    ASSERT_TRUE(run("particle -n p; setAttr p.translate 10 0 0; setAttr p.scale 2 2 2;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setBatch(p, 0, {{12, 4, 0}}, {}, {{2, 0, 0}});
    frame(2);
    ASSERT_EQ(p->countNoCompute(), 1u);
    // Position through the inverse world matrix, velocity without the translation.
    // The newcomer is integrated in its first step: x = 1 + 1 * dt.
    EXPECT_EQ(vec(p, "velocity", 0), (T4dDblVector{1, 0, 0}));
    EXPECT_NEAR(vec(p, "position", 0).x, 1 + kFrame, 1e-15);
    EXPECT_EQ(vec(p, "position", 0).y, 2);
    // With emission in object space the batch is taken as it is.
    setNumber(p, TdynParticleShape::sVsData()->emissionInWorld, 0);
    setBatch(p, 0, {{12, 4, 0}});
    frame(3);
    EXPECT_EQ(vec(p, "position", 1), (T4dDblVector{12, 4, 0}));
}

TEST_F(ParticleMoreTest, InputGeometryEnforcesTheCount) {
    ASSERT_TRUE(run(
        "particle -n p -p 9 9 9; polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1;"
        "setAttr pShape.enforceCountFromHistory 1; connectAttr planeShape.outMesh pShape.inputGeometry;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2);
    // Four corners: the one particle follows the first point, three are born on the others.
    ASSERT_EQ(p->countNoCompute(), 4u);
    double xs = 0;
    for (unsigned i = 0; i < 4; ++i)
        xs += std::fabs(vec(p, "position", i).x);
    EXPECT_NEAR(xs, 4.0, 1e-12);
    EXPECT_EQ(vec(p, "position", 0).y, 0);
    // A smaller geometry removes the surplus at the end of the step.
    ASSERT_TRUE(
        run("polyPlane -n tri -w 2 -h 2 -sx 1 -sy 1; disconnectAttr planeShape.outMesh pShape.inputGeometry;"
            "createNode transform -n none;"));
    setData<TdataVectorArray>(p, TdynParticleShape::sVsData()->inputGeometry,
                              T4dDblVectorArray{{1, 1, 1}, {2, 2, 2}});
    frame(3);
    EXPECT_EQ(p->countNoCompute(), 2u);
}

// Particles drive a shape's points: the input geometry comes back out with its points at the particles,
// taken into the driven shape's space; its own points and the particles read back through
// inputGeometryPoints.
TEST_F(ParticleMoreTest, TargetGeometryMovesADrivenMeshsPoints) {
    ASSERT_TRUE(run("polyPlane -n source -w 2 -h 2 -sx 1 -sy 1; polyPlane -n driven -w 2 -h 2 -sx 1 -sy 1;"
                    "move 0 3 0 driven; particle -n p -p -1 0 1 -p 1 0 1 -p -1 0 -1;"
                    "connectAttr sourceShape.outMesh pShape.inputGeometry;"
                    "connectAttr pShape.targetGeometry drivenShape.inMesh;"
                    "connectAttr drivenShape.worldMatrix pShape.targetGeometryWorldMatrix;"
                    "setParticleAttr -at velocity -vv 0 24 0 pShape.pt[0];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2);
    TmeshShape* driven = node<TmeshShape>("drivenShape");
    ASSERT_NE(driven, nullptr);
    const TpolyMesh* mesh = driven->mesh();
    ASSERT_NE(mesh, nullptr);
    ASSERT_EQ(mesh->numPoints(), 4);
    // Local space (the default): a particle one unit up sits two below the driven shape's origin.
    const T4dDblVector moved = vec(p, "position", 0);
    EXPECT_NEAR(moved.y, 1.0, 1e-12);
    EXPECT_NEAR(mesh->points[0].y, moved.y - 3.0, 1e-12);
    EXPECT_EQ(mesh->points[0].x, moved.x);
    EXPECT_NEAR(mesh->points[1].y, -3.0, 1e-12);
    // Three particles move three points; the fourth keeps the source's.
    const TpolyMesh* source = node<TmeshShape>("sourceShape")->mesh();
    EXPECT_EQ(mesh->points[3].x, source->points[3].x);
    EXPECT_EQ(mesh->points[3].y, source->points[3].y);
    // Object space takes the positions as they are.
    ASSERT_TRUE(run("setAttr pShape.targetGeometrySpace 0;"));
    EXPECT_NEAR(driven->mesh()->points[0].y, 1.0, 1e-12);
    // The input geometry's points, as the particle object reads them.
    Tdata in = p->normalBlock().inputValue(TdynParticleShape::sVsData()->inputGeometryPoints).data();
    ASSERT_NE(in.as<TdataVectorArray>(), nullptr);
    ASSERT_EQ(in.as<TdataVectorArray>()->length(), 4u);
    EXPECT_EQ(in.as<TdataVectorArray>()->array()[3].x, source->points[3].x);
}

// ---- added per-particle attributes ----

TEST_F(ParticleMoreTest, AddedPerParticleAttributesKeepStepWithTheCount) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0; addPP -atr radiusPP p;"
                    "addAttr -ln rgbPP -dt vectorArray pShape; addAttr -ln custom -dt doubleArray pShape;"
                    "addAttr -ln radius -at double pShape; setAttr pShape.radius 0.25;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    EXPECT_EQ(num(p, "radiusPP", 1), 1.0); // added before the scalar existed
    ASSERT_TRUE(run("emit -object p -pos 5 5 5;"));
    EXPECT_EQ(num(p, "radiusPP", 2), 0.25); // the scalar now gives the default
    EXPECT_EQ(vec(p, "rgbPP", 2), (T4dDblVector{0, 0, 0}));
    ASSERT_TRUE(run("setParticleAttr -at custom -fv 7 p.pt[0]; setParticleAttr -at radiusPP -fv 3 p.pt[0];"
                    "saveInitialState -atr radiusPP p; setParticleAttr -at radiusPP -fv 4 p.pt[0];"
                    "currentTime 3; currentTime 1;"));
    // Back at the start: radiusPP comes from radiusPP0, custom has no partner and is refilled.
    ASSERT_EQ(p->countNoCompute(), 2u);
    EXPECT_EQ(num(p, "radiusPP", 0), 3.0);
    EXPECT_EQ(num(p, "custom", 0), 0.0);
    // Scalars' names used per particle warn, quoting the name.
    errors.str("");
    ASSERT_TRUE(run("addAttr -ln lifespan -dt doubleArray pShape;"));
    EXPECT_NE(errors.str().find("Warning"), std::string::npos);
    EXPECT_NE(errors.str().find("lifespan"), std::string::npos) << errors.str();
}

// ---- goals in detail ----

TEST_F(ParticleMoreTest, AGoalWithFewerPointsWrapsAroundTheParticles) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0 -p 0 0 0;"
                    "particle -n g -p 1 0 0 -p 2 0 0 -p 3 0 0; setAttr gShape.isDynamic 0;"
                    "connectAttr gShape.position pShape.goalGeometry[0];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2);
    const double expected[] = {1, 2, 3, 1, 2, 3, 1};
    for (unsigned i = 0; i < 7; ++i)
        EXPECT_NEAR(vec(p, "position", i).x, expected[i], 1e-12) << i;
}

TEST_F(ParticleMoreTest, GoalPPBlendsAndTwoGoalsShareTheirPull) {
    ASSERT_TRUE(run(
        "particle -n p -p 0 0 0 -p 0 0 0 -p 0 0 0; addPP -atr goalPP p;"
        "particle -n g -p 4 0 0; setAttr gShape.isDynamic 0;"
        "connectAttr gShape.position pShape.goalGeometry[0]; setAttr pShape.goalSmoothness 1;"
        "setParticleAttr -at goalPP -fv 0 pShape.pt[1]; setParticleAttr -at goalPP -fv 0.5 pShape.pt[2];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2);
    // goalPP 1 lands on the goal, 0 stays free, 0.5 goes half way (positions are
    // linear in the goal force, which scales with goalPP at smoothness 1).
    EXPECT_NEAR(vec(p, "position", 0).x, 4, 1e-12);
    EXPECT_EQ(vec(p, "position", 1).x, 0);
    EXPECT_NEAR(vec(p, "position", 2).x, 2, 1e-12);
}

TEST_F(ParticleMoreTest, GoalsNeedDynamicsWeight) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -n g -p 4 0 0; setAttr gShape.isDynamic 0;"
                    "connectAttr gShape.position pShape.goalGeometry[0]; setAttr pShape.dynamicsWeight 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    errors.str("");
    frame(2);
    EXPECT_EQ(vec(p, "position", 0).x, 0);
    EXPECT_NE(errors.str().find("dynamicsWeight is 0"), std::string::npos) << errors.str();
}

TEST_F(ParticleMoreTest, ConserveZeroFollowsTheForceAlone) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -c 0; particle -e -id 0 -at velocity -vv 100 0 0 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setData<TdataVectorArray>(p, TdynParticleShape::sVsData()->inputForce, T4dDblVectorArray{{0, 24, 0}}, 0);
    frame(2);
    frame(3);
    // Each step: v = 0 + 24 dt = 1, x += v dt. Nothing of the first velocity survives.
    EXPECT_EQ(vec(p, "velocity", 0), (T4dDblVector{0, 1, 0}));
    EXPECT_EQ(vec(p, "position", 0), (T4dDblVector{0, 2 * kFrame, 0}));
}

// ---- the writer protocol ----

TEST_F(ParticleMoreTest, StepsDoNotCopyArraysTheyOwn) {
    ASSERT_TRUE(run("particle -n p -ll 0 0 0 -ur 9 9 9 -grs 1;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    setData<TdataVectorArray>(p, TdynParticleShape::sVsData()->inputForce, T4dDblVectorArray{{0, -1, 0}}, 0);
    frame(2);
    frame(3);
    const std::uint64_t copies = Tletter::sCopyCount;
    const T4dDblVector* before = p->vectorArrayReference(TdynParticleShape::sVsData()->position)->data();
    for (int f = 4; f <= 8; ++f)
        frame(f);
    EXPECT_EQ(Tletter::sCopyCount, copies);
    EXPECT_EQ(p->vectorArrayReference(TdynParticleShape::sVsData()->position)->data(), before);
}

// ---- run-up ----

TEST_F(ParticleMoreTest, RunupFunctionsEdgeCases) {
    // No dynamic nodes: nothing to run.
    EXPECT_FALSE(TdynStatic::runupSceneFromTo(TanimTime(1.0, kCurrentFrameUnit),
                                              TanimTime(5.0, kCurrentFrameUnit), 1, false, true));
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p; currentTime 1;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    // Inside a run-up another one returns at once.
    TdynStatic::fIsInRunup = true;
    const std::uint64_t steps = p->stepCount();
    EXPECT_TRUE(TdynStatic::runupSceneTo(TanimTime(5.0, kCurrentFrameUnit), 1, false));
    EXPECT_EQ(p->stepCount(), steps);
    TdynStatic::fIsInRunup = false;
    // `to` before `from` plays the same range; oversample 0 is taken as 1.
    EXPECT_TRUE(TdynStatic::runupSceneFromTo(TanimTime(5.0, kCurrentFrameUnit),
                                             TanimTime(1.0, kCurrentFrameUnit), 0, false, true));
    EXPECT_EQ(p->stepCount(), steps + 4); // frames 2 to 5 after the one already evaluated
    EXPECT_EQ(vec(p, "position", 0).x, 4.0);
    EXPECT_EQ(TdynStatic::lastEvaluatedTime(1), TanimTime(5.0, kCurrentFrameUnit));
}

TEST_F(ParticleMoreTest, RunupCommandAndPreferences) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p; currentTime 1;"
                    "runup -mxf 7;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    EXPECT_EQ(vec(p, "position", 0).x, 6.0);
    // From the start frame: the state is rebuilt rather than continued.
    ASSERT_TRUE(run("runup -fsf -mxf 3;"));
    EXPECT_EQ(vec(p, "position", 0).x, 2.0);
    // An interrupt stops an interruptible run-up before its next step.
    std::atomic<bool> stop{true};
    session.engine().setInterruptFlag(&stop);
    const std::uint64_t steps = p->stepCount();
    EXPECT_TRUE(TdynStatic::runupSceneFromTo(TanimTime(3.0, kCurrentFrameUnit),
                                             TanimTime(9.0, kCurrentFrameUnit), 1, true, true));
    EXPECT_EQ(p->stepCount(), steps);
    session.engine().setInterruptFlag(nullptr);
    ASSERT_TRUE(run("dynPref -rt 1 -rf 1;"));
    EXPECT_EQ(ToptionVars::intValue("dynPrefRunUpToCurrentTime"), 1);
    EXPECT_EQ(session.engine().run("dynPref", {"-q", "-rf"}).asInt(), 1);
    EXPECT_TRUE(TdynStatic::runupToCurrentTimeIsOn());
    EXPECT_TRUE(TdynStatic::runupFromStartTime());
    errors.str("");
    EXPECT_FALSE(run("dynPref -rf 5;"));
    EXPECT_NE(errors.str().find("-runupFrom takes 1"), std::string::npos);
}

TEST_F(ParticleMoreTest, GlobalsAndControllerAreMadeOnceAndAnswerQueries) {
    ASSERT_TRUE(run("particle; particle;"));
    EXPECT_EQ(session.engine().run("dynGlobals", {"-la"}).stringArray(),
              std::vector<std::string>{"dynGlobals1"});
    EXPECT_EQ(session.engine().run("dynGlobals", {"-active"}).asString(), "dynGlobals1");
    errors.str("");
    EXPECT_FALSE(run("dynGlobals -os 0;"));
    EXPECT_NE(errors.str().find("-overSampling must lie between 1 and 250"), std::string::npos);
    EXPECT_FALSE(run("dynGlobals -os 251;"));
    // The most steps a frame: one a tick. Still finite and on the grid.
    ASSERT_TRUE(run("dynGlobals -os 250; particle -n fine -p 0 0 0; currentTime 1;"));
    const std::uint64_t before = node<TdynParticleShape>("fineShape")->stepCount();
    ASSERT_TRUE(run("currentTime 2;"));
    EXPECT_EQ(node<TdynParticleShape>("fineShape")->stepCount() - before, 250u);
    TdynController* c = TdynController::controller(false);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(session.engine().run("dynControl", {"-q", "-particleLOD"}).asFloat(), 1.0);
    EXPECT_EQ(session.engine().run("dynControl", {"-q", "-traceDepth"}).asInt(), 10);
    ASSERT_TRUE(run("dynControl -traceDepth 4 -particlesOn 0;"));
    EXPECT_EQ(session.engine().run("dynControl", {"-q", "-traceDepth"}).asInt(), 4);
    EXPECT_EQ(session.engine().run("dynControl", {"-q", "-particlesOn"}).asInt(), 0);
    EXPECT_FALSE(run("dynControl -pld 2;"));
    EXPECT_TRUE(c->isLocked(&TdynController::sVsData()->seed));
    c->resetDefaultValues();
    EXPECT_EQ(session.engine().run("dynControl", {"-q", "-traceDepth"}).asInt(), 10);
}

// ---- random numbers ----

TEST_F(ParticleMoreTest, ModuleRandomDrawsRepeatAndSmoothStepIsTheCubic) {
    dynRandgen::seed(42);
    const double a = dynRandgen::uniform(2, 3), g1 = dynRandgen::gaussian(), g2 = dynRandgen::gaussian();
    dynRandgen::seed(42);
    EXPECT_EQ(dynRandgen::uniform(2, 3), a);
    EXPECT_EQ(dynRandgen::gaussian(), g1);
    EXPECT_EQ(dynRandgen::gaussian(), g2); // the kept second value of the pair
    EXPECT_GE(a, 2);
    EXPECT_LT(a, 3);
    EXPECT_EQ(dynRandgen::smoothStep(1, 3, 0.5), 0.0);
    EXPECT_EQ(dynRandgen::smoothStep(1, 3, 3), 1.0);
    EXPECT_EQ(dynRandgen::smoothStep(1, 3, 2), 0.5);     // -2/8 + 3/4
    EXPECT_EQ(dynRandgen::smoothStep(0, 4, 1), 0.15625); // -2/64 + 3/16
    EXPECT_EQ(dynRandgen::smoothStep(2, 2, 5), 0.0);
}

} // namespace

namespace {

// ---- derived arrays ----

TEST_F(ParticleMoreTest, DerivedArraysFollowTheStateAndTheTransform) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 2 0 0; particle -e -id 1 -at velocity -vv 0 24 0 p;"
                    "setAttr p.translate 0 0 5;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    auto* vs = TdynParticleShape::sVsData();
    frame(2);
    // Particle 1 moved one unit up in one frame.
    EXPECT_EQ(vec(p, "position", 1), (T4dDblVector{2, 1, 0}));
    EXPECT_EQ(vec(p, "worldPosition", 1), (T4dDblVector{2, 1, 5}));
    EXPECT_EQ(vec(p, "lastPosition", 1), (T4dDblVector{2, 0, 0}));
    EXPECT_EQ(vec(p, "lastPosition", 0), (T4dDblVector{0, 0, 0}));
    // The object did not move: world velocity is the particle's own.
    EXPECT_NEAR((vec(p, "worldVelocity", 1) - T4dDblVector{0, 24, 0}).length(), 0, 1e-12);
    T4dDblVector c;
    p->getAttributeValue(vs->centroid, c);
    EXPECT_EQ(c, (T4dDblVector{1, 0.5, 0}));
    p->getAttributeValue(vs->worldCentroid, c);
    EXPECT_EQ(c, (T4dDblVector{1, 0.5, 5}));
    // What fields see is the cached generation in world space, handed out without a copy.
    Tdata fieldPos, cachedWorld;
    p->getAttributeValue(vs->fieldDataPosition, fieldPos);
    p->getAttributeValue(vs->cachedWorldPosition, cachedWorld);
    EXPECT_EQ(fieldPos.letter(), cachedWorld.letter());
    EXPECT_EQ(fieldPos.as<TdataVectorArray>()->array()[1], (T4dDblVector{2, 1, 5}));
    double dt = 0;
    p->getAttributeValue(vs->fieldDataDeltaTime, dt);
    EXPECT_EQ(dt, kFrame);
    // Ids sorted with the index of each.
    ASSERT_TRUE(run("emit -object p -pos 0 0 0;"));
    p->removeDeadParticles(Tint32Array{0}, p->normalBlock());
    Tdata sorted, index;
    p->getAttributeValue(vs->sortedId, sorted);
    p->getAttributeValue(vs->idIndex, index);
    EXPECT_EQ(sorted.as<TdataInt32Array>()->array(), (Tint32Array{1, 2}));
    EXPECT_EQ(index.as<TdataInt32Array>()->array(), (Tint32Array{1, 0}));
}

TEST_F(ParticleMoreTest, AgeAndCountOutsideTheStep) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    auto* vs = TdynParticleShape::sVsData();
    frame(4);
    EXPECT_EQ(num(p, "age", 0),
              TanimTime(4.0, kCurrentFrameUnit).seconds() - TanimTime(1.0, kCurrentFrameUnit).seconds());
    // A birthTime of another length: every age is the time since the start.
    setData<TdataDoubleArray>(p, vs->birthTime, TdoubleArray{0.5});
    const double sinceStart =
        (TanimTime(4.0, kCurrentFrameUnit) - TanimTime(1.0, kCurrentFrameUnit)).seconds();
    EXPECT_EQ(num(p, "age", 1), sinceStart);
    // A timed read of count gives the stored length and steps nothing.
    const std::uint64_t steps = p->stepCount();
    TdgContextTimed ctx(TanimTime(30.0, kCurrentFrameUnit));
    EXPECT_EQ(p->makeDataBlock(ctx, true)->inputValue(vs->count).asInt(), 2);
    EXPECT_EQ(p->stepCount(), steps);
    // Render types outside 0 to 9 are refused (the stored value stays).
    run("setAttr pShape.particleRenderType 12;");
    double rt = 0;
    p->getAttributeValue(vs->particleRenderType, rt);
    EXPECT_EQ(rt, 3);
}

TEST_F(ParticleMoreTest, EditingOneParticleUndoesAndNamesItsShape) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0 -p 1 0 0; particle -e -id 1 -at mass -fv 3 p;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    EXPECT_EQ(num(p, "mass", 1), 3);
    EXPECT_EQ(num(p, "mass0", 1), 3); // at the start the initial state changes too
    ASSERT_TRUE(run("undo;"));
    EXPECT_EQ(num(p, "mass", 1), 1);
    EXPECT_EQ(num(p, "mass0", 1), 1);
    ASSERT_TRUE(run("redo;"));
    EXPECT_EQ(num(p, "mass", 1), 3);
    EXPECT_EQ(session.engine().run("particle", {"-q", "-sn", "p"}).asString(), "pShape");
    errors.str("");
    EXPECT_FALSE(run("particle -e -id 9 -at mass -fv 3 p;"));
    EXPECT_NE(errors.str().find("has no particle with id 9"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("particle -e -id 0 -at mass -vv 1 2 3 p;"));
    EXPECT_NE(errors.str().find("give -floatValue"), std::string::npos) << errors.str();
}

} // namespace

namespace {

TEST_F(ParticleMoreTest, PerParticleLifespansDecideInModeThree) {
    ASSERT_TRUE(run(
        "particle -n p -p 0 0 0 -p 1 0 0 -p 2 0 0; addPP -atr lifespanPP p; setAttr pShape.lifespanMode 3;"
        "setParticleAttr -at lifespanPP -fv 0.05 p.pt[0]; setParticleAttr -at lifespanPP -fv 10 p.pt[1];"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    frame(2); // age 1/24 < 0.05
    EXPECT_EQ(p->countNoCompute(), 3u);
    frame(3); // age 2/24 >= 0.05: particle 0 goes, the last survivor takes its place
    ASSERT_EQ(p->countNoCompute(), 2u);
    EXPECT_EQ(num(p, "particleId", 0), 2);
    EXPECT_EQ(num(p, "finalLifespanPP", 1), 10);
    // Particle 2 kept the lifespan of its birth: never dies.
    EXPECT_EQ(num(p, "finalLifespanPP", 0), 3.4028234663852886e+38);
    // Derived values are not written to scene files; the event table is, as nothing else keeps it.
    auto* vs = TdynParticleShape::sVsData();
    EXPECT_TRUE(p->shouldBeWritten(Tplug(p, vs->eventName, 0)));
    EXPECT_FALSE(p->shouldBeWritten(Tplug(p, vs->collisionRecords)));
    EXPECT_FALSE(p->shouldBeWritten(Tplug(p, vs->count)));
    // The runtime copy of an initial-state array is made again from it.
    EXPECT_FALSE(p->shouldBeWritten(Tplug(p, vs->position)));
    EXPECT_TRUE(p->shouldBeWritten(Tplug(p, vs->position0)));
}

} // namespace

namespace {

TEST_F(ParticleMoreTest, SavedStatesKeepTheirAgesAtTheStart) {
    ASSERT_TRUE(
        run("particle -n p -p 0 0 0; currentTime 5; saveInitialState p; currentTime 6; currentTime 1;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    // Born at frame 1 and saved at frame 5: four frames old at the start.
    const double fourFrames =
        TanimTime(5.0, kCurrentFrameUnit).seconds() - TanimTime(1.0, kCurrentFrameUnit).seconds();
    EXPECT_NEAR(num(p, "age", 0), fourFrames, 1e-15);
}

TEST_F(ParticleMoreTest, DeletedObjectsLeaveTimeAloneAndComeBackWithUndo) {
    ASSERT_TRUE(
        run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p; currentTime 3;"
            "delete p; currentTime 4; currentUnit -time pal; currentUnit -time film; undo; undo; undo;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    ASSERT_NE(p, nullptr);
    frame(5);
    // The object steps on from where it stood when it was deleted.
    EXPECT_EQ(vec(p, "position", 0).x, 4.0);
}

} // namespace

namespace {

TEST_F(ParticleMoreTest, InitialStateHelpers) {
    ASSERT_TRUE(run("particle -n p; setAttr p.translate 0 10 0; polyPlane -n plane -w 2 -h 2 -sx 1 -sy 1;"
                    "setAttr plane.translate 5 0 0;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    auto* vs = TdynParticleShape::sVsData();
    ASSERT_TRUE(p->addFromDagObject(node<TdagObject>("plane")));
    ASSERT_EQ(p->initialCount(), 4u);
    // The plane's world points, seen from an object 10 units up.
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_NEAR(std::fabs(vec(p, "position0", i).x - 5), 1, 1e-12);
        EXPECT_EQ(vec(p, "position0", i).y, -10);
    }
    EXPECT_FALSE(p->addFromDagObject(node<TdagObject>("p")));
    p->shiftVectorAttributeValues(vs->position0, {0, 10, 0});
    EXPECT_EQ(vec(p, "position0", 0).y, 0);
    p->shiftDoubleAttributeValues(vs->mass0, 2);
    EXPECT_EQ(num(p, "mass0", 3), 3);
    // A short mass array is brought back to the count with the default.
    setData<TdataDoubleArray>(p, vs->mass0, TdoubleArray{5});
    p->allocateMassAttribute(p->normalBlock());
    EXPECT_EQ(num(p, "mass0", 0), 5);
    EXPECT_EQ(num(p, "mass0", 3), 1);
    setData<TdataDoubleArray>(p, vs->birthTime0, TdoubleArray{});
    p->allocateBirthTimeAttribute(p->normalBlock());
    EXPECT_EQ(num(p, "birthTime0", 2), TanimTime(1.0, kCurrentFrameUnit).seconds());
}

} // namespace

namespace {

TEST_F(ParticleMoreTest, ATimeWarpOnCurrentTimeBendsTheSimulation) {
    // currentTime driven at half speed: frame 25 of the scene is frame 13 of the simulation.
    ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -e -id 0 -at velocity -vv 24 0 0 p;"
                    "createNode transform -n warp;"
                    "setKeyframe -t 1 -v (1.0 / 24) -itt linear -ott linear warp.translateX;"
                    "setKeyframe -t 25 -v (13.0 / 24) -itt linear -ott linear warp.translateX;"
                    "connectAttr -f warp.translateX pShape.currentTime;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    for (int f = 2; f <= 25; ++f)
        frame(f);
    // Twelve frames of simulated time at 24 units a second; each step is half a frame.
    EXPECT_NEAR(vec(p, "position", 0).x, 12.0, 1e-9);
}

TEST_F(ParticleMoreTest, MoreBadInputLeavesEverythingAsItWas) {
    ASSERT_TRUE(run("particle -n p -p 0 0 0; createNode transform -n t;"));
    TdynParticleShape* p = node<TdynParticleShape>("pShape");
    struct Case {
        const char* script;
        const char* says;
    } cases[] = {
        {"emit -object p;", "give at least one -position"},
        {"emit -object p -pos 1 1 1 -at mass;", "-attribute mass needs 1 -floatValue"},
        {"emit -object p -pos 1 1 1 -at nothere -fv 1;", "'nothere' is not a per-particle attribute"},
        {"addPP -atr \"a b\" p;", "is not a valid attribute name"},
        {"addPP -atr opacityPP t;", "'t' is not a particle object"},
        {"saveInitialState -atr bogus p;", "'bogus' is not a per-particle attribute"},
        {"getParticleAttr -at position p.pt[x];", "is not a particle or particle component"},
        {"getParticleAttr p;", "give the attribute with -attribute"},
        {"setParticleAttr -at mass p;", "give a value with -floatValue or -vectorValue"}};
    for (const Case& c : cases) {
        errors.str("");
        EXPECT_FALSE(run(c.script)) << c.script;
        EXPECT_NE(errors.str().find(c.says), std::string::npos) << c.script << "\n" << errors.str();
    }
    EXPECT_EQ(p->countNoCompute(), 1u);
    EXPECT_EQ(p->attribute("opacityPP"), nullptr);
    EXPECT_EQ(num(p, "mass", 0), 1.0);
}

} // namespace
