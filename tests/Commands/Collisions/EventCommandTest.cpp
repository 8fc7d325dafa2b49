// The event command: making, querying, editing, renaming, listing and deleting
// events, undo, and its refusals.

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/DynSceneTest.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class EventCommandTest : public DynSceneTest {
protected:
    void SetUp() override {
        DynSceneTest::SetUp();
        ASSERT_TRUE(run("particle -n p -p 0 0 0; particle -n q; polyPlane -n ground;")) << errors.str();
        p = node<TdynParticleShape>("pShape");
    }
    // The printed result of one command.
    std::string result(const std::string& command) {
        output.str("");
        EXPECT_TRUE(run("print(`" + command + "`);")) << command << ": " << errors.str();
        return output.str();
    }

    TdynParticleShape* p = nullptr;
};

TEST_F(EventCommandTest, EveryFlagIsStoredAndQueried) {
    EXPECT_EQ(result("event -n bounce -em 4 -spl 2 -die 1 -r 1 -ct 3 -sp 0.25 -pr onHit -t q p"), "bounce\n");
    EXPECT_EQ(result("event -q -n bounce -em p"), "4");
    EXPECT_EQ(result("event -q -n bounce -spl p"), "2");
    EXPECT_EQ(result("event -q -n bounce -die p"), "1");
    EXPECT_EQ(result("event -q -n bounce -r p"), "1");
    EXPECT_EQ(result("event -q -n bounce -ct p"), "3");
    EXPECT_EQ(result("event -q -n bounce -sp p"), "0.25");
    EXPECT_EQ(result("event -q -n bounce -pr p"), "onHit");
    EXPECT_EQ(result("event -q -n bounce -t p"), "qShape");
    // The target is a connection, so the event follows the object.
    EXPECT_EQ(p->eventTargetObject(0), node<TdynParticleShape>("qShape"));
    // The per-particle counter exists with its initial state.
    EXPECT_NE(p->attribute("event"), nullptr);
    EXPECT_NE(p->attribute("event0"), nullptr);
}

TEST_F(EventCommandTest, NamesListRenameAndDeleteKeepTheTableConsistent) {
    ASSERT_TRUE(run("event p; event p; event -n last p;")) << errors.str();
    EXPECT_EQ(result("event -ls p"), "event1\nevent2\nlast\n");
    ASSERT_TRUE(run("event -e -n event2 -re middle -em 7 p;")) << errors.str();
    EXPECT_EQ(result("event -q -n middle -em p"), "7");
    ASSERT_TRUE(run("event -d -n event1 p;")) << errors.str();
    EXPECT_EQ(result("event -ls p"), "middle\nlast\n");
    // The freed element is used again by the next event.
    ASSERT_TRUE(run("event -n again p;")) << errors.str();
    EXPECT_EQ(result("event -q -id 0 p"), "again");
    EXPECT_EQ(p->getValidEventIndex("last"), 2);
    double n = 0;
    p->getAttributeValue(TdynParticleShape::sVsData()->numberOfEvents, n);
    EXPECT_EQ(n, 3.0);
}

TEST_F(EventCommandTest, UndoPutsBackWhatAnEditOrACreationChanged) {
    ASSERT_TRUE(run("event -n e -em 1 p; event -e -n e -em 9 -t q p;")) << errors.str();
    ASSERT_TRUE(run("undo;")) << errors.str();
    EXPECT_EQ(result("event -q -n e -em p"), "1");
    EXPECT_EQ(p->eventTargetObject(0), nullptr);
    ASSERT_TRUE(run("redo;")) << errors.str();
    EXPECT_EQ(result("event -q -n e -em p"), "9");
    ASSERT_TRUE(run("undo; undo;")) << errors.str();
    EXPECT_EQ(result("event -ls p"), "");
}

TEST_F(EventCommandTest, BadInputIsRefusedWithAMessageNamingIt) {
    EXPECT_FALSE(run("event -t ground p;"));
    EXPECT_NE(errors.str().find("'ground' is not a particle object"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("event -e -n nothing -em 2 p;"));
    EXPECT_NE(errors.str().find("no event named 'nothing'"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("event -spl -2 p;"));
    EXPECT_NE(errors.str().find("-split cannot be negative"), std::string::npos) << errors.str();
    EXPECT_FALSE(run("event ground;"));
    ASSERT_TRUE(run("event -n dup p;")) << errors.str();
    EXPECT_FALSE(run("event -n dup p;"));
    EXPECT_NE(errors.str().find("already has an event named 'dup'"), std::string::npos) << errors.str();
    // Nothing half-made survived the refusals.
    EXPECT_EQ(result("event -ls p"), "dup\n");
}

} // namespace
