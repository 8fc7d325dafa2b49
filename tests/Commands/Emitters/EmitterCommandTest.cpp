// The emitter command and connectDynamic -em: creation free or owned, edit
// and query with undo, the wiring to a target, and bad input.

#include "Commands/Emitters/TdynEmitter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class EmitterCommandTest : public DynSceneTest {
protected:
    double num(const std::string& name, const std::string& attr) { return number<TdynEmitter>(name, attr); }
};

TEST_F(EmitterCommandTest, AFreeEmitterStandsAtItsPositionWithTheFlagsValues) {
    EXPECT_EQ(eval("emitter;").asString(), "emitter1");
    EXPECT_EQ(num("emitter1", "emitterType"), 1);
    EXPECT_EQ(num("emitter1", "rate"), 100);
    EXPECT_EQ(node<TdynEmitter>("emitter1")->ownerObject(), nullptr);
    EXPECT_EQ(eval("emitter -pos 1 2 3 -type dir -r 7 -spd 2.5 -sp 0.1 -dx 0 -dy 1 -vsh cone -vsw 90 "
                   "-cye frame -cyi 3;")
                  .asString(),
              "emitter2");
    EXPECT_EQ(num("emitter2", "translateY"), 2);
    EXPECT_EQ(num("emitter2", "emitterType"), 0);
    EXPECT_EQ(num("emitter2", "rate"), 7);
    EXPECT_EQ(num("emitter2", "speed"), 2.5);
    EXPECT_EQ(num("emitter2", "directionX"), 0);
    EXPECT_EQ(num("emitter2", "directionY"), 1);
    EXPECT_EQ(num("emitter2", "volumeShape"), 3);
    EXPECT_NEAR(num("emitter2", "volumeSweep"), 3.14159265358979 / 2, 1e-12);
    EXPECT_EQ(num("emitter2", "cycleEmission"), 1);
    EXPECT_EQ(num("emitter2", "cycleInterval"), 3);
    // Every spelling of the types.
    const std::pair<const char*, int> words[] = {{"direction", 0}, {"omni", 1},  {"surf", 2}, {"surface", 2},
                                                 {"curv", 3},      {"curve", 3}, {"vol", 4},  {"volume", 4}};
    for (const auto& [w, v] : words) {
        const std::string name = eval(std::string("emitter -type ") + w + ";").asString();
        EXPECT_EQ(num(name, "emitterType"), v) << w;
    }
}

TEST_F(EmitterCommandTest, EditQueryAndUndo) {
    ASSERT_TRUE(run("emitter -n e -r 20 -vsw 180;")) << errors.str();
    ASSERT_TRUE(run("emitter -e -r 50 -type volume e;")) << errors.str();
    EXPECT_EQ(num("e", "rate"), 50);
    EXPECT_EQ(eval("emitter -q -type e;").asString(), "volume");
    EXPECT_EQ(eval("emitter -q -r e;").asFloat(), 50);
    EXPECT_NEAR(eval("emitter -q -vsw e;").asFloat(), 180, 1e-9);
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_EQ(num("e", "rate"), 20);
    EXPECT_EQ(num("e", "emitterType"), 1);
    ASSERT_TRUE(run("redo;")) << errors.str();
    EXPECT_EQ(num("e", "rate"), 50);
    // Undoing the creation takes the node away; redo brings the same one back.
    TdynEmitter* before = node<TdynEmitter>("e");
    ASSERT_TRUE(run("undo; undo;")) << errors.str();
    EXPECT_EQ(node<TdynEmitter>("e"), nullptr);
    ASSERT_TRUE(run("redo;")) << errors.str();
    EXPECT_EQ(node<TdynEmitter>("e"), before);
}

TEST_F(EmitterCommandTest, BadInputIsRefusedWithAMessageAndMakesNothing) {
    EXPECT_FALSE(run("emitter -type sideways;"));
    EXPECT_NE(errors.str().find("unknown value 'sideways' for -type"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("emitter -r -5;"));
    EXPECT_NE(errors.str().find("-rate cannot be negative"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("emitter -vsh blob;"));
    EXPECT_NE(errors.str().find("'blob' for -volumeShape"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("emitter -cyi 0;"));
    EXPECT_EQ(node<TdynEmitter>("emitter1"), nullptr);
    // Editing a node that is not an emitter, or querying none.
    ASSERT_TRUE(run("particle -n p;")) << errors.str();
    EXPECT_FALSE(run("emitter -e -r 3 pShape;"));
    EXPECT_NE(errors.str().find("name an emitter to edit"), std::string::npos) << errors.str();
    // A range the node refuses is made, with a warning that nothing will be born.
    ASSERT_TRUE(run("emitter -n far -mxd 1 -mnd 2;")) << errors.str();
    EXPECT_NE(errors.str().find("maxDistance 1.000000 is below minDistance 2.000000"), std::string::npos)
        << errors.str();
}

TEST_F(EmitterCommandTest, ConnectDynamicWiresEachTargetAtOneIndex) {
    ASSERT_TRUE(
        run("particle -n p; particle -n q; emitter -n e; connectDynamic -em e p; connectDynamic -em e q;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    auto* vs = TdynEmitter::saVs();
    auto* pvs = TdynParticleShape::sVsData();
    TdynParticleShape* q = node<TdynParticleShape>("qShape");
    EXPECT_EQ(Tplug(q, pvs->newParticles, 1).source(), Tplug(e, &vs->output, 1));
    EXPECT_EQ(Tplug(e, &vs->deltaTime, 1).source(), Tplug(q, pvs->timeStepSize));
    EXPECT_EQ(Tplug(e, &vs->startTime, 1).source(), Tplug(q, pvs->startTime));
    EXPECT_EQ(Tplug(e, &vs->isFull, 1).source(), Tplug(q, pvs->isFull));
    EXPECT_EQ(Tplug(e, &vs->seed, 1).source(), Tplug(q, pvs->seed, 1));
    EXPECT_EQ(Tplug(e, &vs->inheritFactor, 1).source(), Tplug(q, pvs->inheritFactor));
    TdynEmitterPtrArray found;
    TdynEmitter::getEmittersConnectedTo(q, found);
    EXPECT_EQ(found, TdynEmitterPtrArray{e});
    // Joining twice changes nothing; undo takes away only what the command made.
    ASSERT_TRUE(run("connectDynamic -em e q;")) << errors.str();
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_EQ(Tplug(q, pvs->newParticles, 1).source(), Tplug(e, &vs->output, 1));
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_TRUE(Tplug(q, pvs->newParticles, 1).source().isNull());
    EXPECT_TRUE(Tplug(e, &vs->seed, 1).source().isNull());
    TdynEmitter::getEmittersConnectedTo(q, found);
    EXPECT_TRUE(found.empty());
    // Wrong kinds are named.
    EXPECT_FALSE(run("connectDynamic -em pShape q;"));
    EXPECT_NE(errors.str().find("'pShape' is not an emitter"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("connectDynamic -em e e;"));
    EXPECT_FALSE(run("connectDynamic -em nothingHere q;"));
    EXPECT_NE(errors.str().find("no object matches 'nothingHere'"), std::string::npos) << errors.str();
}

TEST_F(EmitterCommandTest, AnEmitterOwnedByParticlesEmitsFromEachOfThem) {
    ASSERT_TRUE(run("particle -n src -p 0 0 0 -p 5 0 0; select -r src; emitter -n e -r 24 -spd 0;"
                    "particle -n q; connectDynamic -em e q;"))
        << errors.str();
    TdynEmitter* e = node<TdynEmitter>("e");
    EXPECT_EQ(e->ownerObject(), node<TdynParticleShape>("srcShape"));
    frame(1);
    frame(2);
    // One a second per point at 24 a second: one each per frame, where the (still) points are.
    TdataArrayAttrs* b =
        e->normalBlock().outputValue(&TdynEmitter::saVs()->output, 0).data().as<TdataArrayAttrs>();
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(b->getVectorData("position")->length(), 2u);
    EXPECT_EQ((*b->getVectorData("position"))[0], T4dDblVector(0, 0, 0));
    EXPECT_EQ((*b->getVectorData("position"))[1], T4dDblVector(5, 0, 0));
    ASSERT_NE(b->getDoubleData("parentId"), nullptr);
    EXPECT_EQ(*b->getDoubleData("parentId"), (TdoubleArray{0, 1}));
    EXPECT_EQ(node<TdynParticleShape>("qShape")->countNoCompute(), 2u);
    TdynEmitterPtrArray owned;
    TdynEmitter::getEmittersOwnedBy(node<TdynParticleShape>("srcShape"), owned);
    EXPECT_EQ(owned, TdynEmitterPtrArray{e});
    // A mesh owns one too; a plain transform cannot.
    ASSERT_TRUE(run("polyPlane -n plane; select -r plane; emitter -n onPlane;")) << errors.str();
    EXPECT_NE(node<TdynEmitter>("onPlane")->ownerObject(), nullptr);
    EXPECT_FALSE(run("select -r e; emitter;"));
    EXPECT_NE(errors.str().find("cannot own an emitter"), std::string::npos) << errors.str();
}

} // namespace
