#include "GraphTestNodes.h"
#include "Host/Base/ThostException.h"

#include <gtest/gtest.h>

namespace {

// Each test gets a fresh graph as the current one.
class GraphTest : public ::testing::Test {
protected:
    void SetUp() override {
        previous = TdependGraph::hasCurrent() ? &TdependGraph::current() : nullptr;
        graph = std::make_unique<TdependGraph>();
        TdependGraph::setCurrent(graph.get());
    }
    void TearDown() override {
        graph.reset();
        TdependGraph::setCurrent(previous);
    }
    TtestSum* makeSum(const std::string& name) { return TtestSum::cast(graph->createNode("testSum", name)); }
    double pull(TdependNode* n, const Tattribute* a, int element = -1) {
        double v = 0;
        n->getAttributeValue(a, v, element);
        return v;
    }
    void setNumber(TdependNode* n, const Tattribute* a, double v, int element = -1) {
        TstandaloneValue value(a);
        TdataHandle h = value.handle();
        h.set(v);
        n->setCachedValue(Tplug(n, const_cast<Tattribute*>(a), element), h, TdgContext::fsNormal);
    }
    TdependGraph* previous = nullptr;
    std::unique_ptr<TdependGraph> graph;
};

TEST_F(GraphTest, PullComputesOnceAndOnlyWhatAChangeDirtied) {
    auto* vs = TtestSum::sVsData();
    TtestSum* s1 = makeSum("s1");
    TtestSum* s2 = makeSum("s2");
    graph->connect(Tplug(s1, &vs->sum), Tplug(s2, &vs->a));
    setNumber(s1, &vs->a, 2);
    setNumber(s1, &vs->b, 3);
    setNumber(s2, &vs->b, 10);

    EXPECT_DOUBLE_EQ(pull(s2, &vs->sum), 15.0);
    EXPECT_EQ(s1->computeCount(), 1u);
    EXPECT_EQ(s2->computeCount(), 1u);

    // A second pull with nothing changed computes nothing.
    EXPECT_DOUBLE_EQ(pull(s2, &vs->sum), 15.0);
    EXPECT_EQ(s1->computeCount(), 1u);
    EXPECT_EQ(s2->computeCount(), 1u);

    // Changing the downstream input recomputes only the downstream node.
    setNumber(s2, &vs->b, 20);
    EXPECT_DOUBLE_EQ(pull(s2, &vs->sum), 25.0);
    EXPECT_EQ(s1->computeCount(), 1u);
    EXPECT_EQ(s2->computeCount(), 2u);

    // Changing upstream recomputes both.
    setNumber(s1, &vs->a, 4);
    EXPECT_DOUBLE_EQ(pull(s2, &vs->sum), 27.0);
    EXPECT_EQ(s1->computeCount(), 2u);
    EXPECT_EQ(s2->computeCount(), 3u);
}

TEST_F(GraphTest, MultiElementsConnectAndSum) {
    auto* vs = TtestSum::sVsData();
    TtestSum* a = makeSum("a");
    TtestSum* b = makeSum("b");
    TtestSum* t = makeSum("t");
    setNumber(a, &vs->a, 1);
    setNumber(b, &vs->a, 5);
    graph->connect(Tplug(a, &vs->sum), Tplug(t, &vs->inputs, 0));
    graph->connect(Tplug(b, &vs->sum), Tplug(t, &vs->inputs, 7));
    EXPECT_DOUBLE_EQ(pull(t, &vs->total), 6.0);
    setNumber(b, &vs->a, 6);
    EXPECT_DOUBLE_EQ(pull(t, &vs->total), 7.0);
    graph->disconnect(Tplug(b, &vs->sum), Tplug(t, &vs->inputs, 7));
    // The element keeps the last value it was given.
    EXPECT_DOUBLE_EQ(pull(t, &vs->total), 7.0);
    EXPECT_EQ(Tplug(t, &vs->inputs, 0).name(), "t.inputs[0]");
}

TEST_F(GraphTest, ConnectionErrorsNameThePlugs) {
    auto* vs = TtestSum::sVsData();
    TtestSum* a = makeSum("a");
    TtestSum* b = makeSum("b");
    graph->connect(Tplug(a, &vs->sum), Tplug(b, &vs->a));
    try {
        graph->connect(Tplug(a, &vs->sum), Tplug(b, &vs->values));
        FAIL() << "a number went into an array";
    } catch (const TgraphError& e) {
        EXPECT_NE(std::string(e.what()).find("b.values"), std::string::npos) << e.what();
    }
    try {
        graph->connect(Tplug(b, &vs->sum), Tplug(b, &vs->a));
        FAIL() << "second input accepted without force";
    } catch (const TgraphError& e) {
        EXPECT_NE(std::string(e.what()).find("already has an input from a.sum"), std::string::npos) << e.what();
    }
    graph->connect(Tplug(b, &vs->sum), Tplug(b, &vs->b)); // a loop through the node: allowed, guarded
    EXPECT_THROW(graph->connect(Tplug(a, &vs->a), Tplug(b, &vs->sum)), TgraphError); // sum is not writable
}

TEST_F(GraphTest, TimedContextNeverChangesStoredState) {
    auto* vs = TtestAccumulator::sVsData();
    auto* acc = TtestAccumulator::cast(graph->createNode("testAccumulator", "acc"));
    TdnTime* time = graph->timeNode();
    graph->connect(time->outTimePlug(), Tplug(acc, &vs->currentTime));
    graph->setTime(TanimTime(1.0, kCurrentFrameUnit));
    double v1 = pull(acc, &vs->value);
    graph->setTime(TanimTime(4.0, kCurrentFrameUnit));
    double v4 = pull(acc, &vs->value);
    EXPECT_DOUBLE_EQ(v4 - v1, 3.0);

    {
        TdgContextTimed at(TanimTime(10.0, kCurrentFrameUnit));
        TdataBlock* b = acc->makeDataBlock(at, true);
        EXPECT_EQ(b->inputValue(&vs->currentTime).asTime(), TanimTime(10.0, kCurrentFrameUnit));
        EXPECT_DOUBLE_EQ(b->inputValue(&vs->value).asDouble(), v4);
    }
    // The normal block still holds frame 4's state, and time is where it was.
    EXPECT_EQ(acc->normalBlock().outputValue(&vs->lastTime).asTime(), TanimTime(4.0, kCurrentFrameUnit));
    EXPECT_DOUBLE_EQ(pull(acc, &vs->value), v4);
    EXPECT_EQ(graph->time(), TanimTime(4.0, kCurrentFrameUnit));
}

TEST_F(GraphTest, WriterProtocolCopiesOnlySharedLetters) {
    Tdata d = makeData<TdataDoubleArray>(TdoubleArray{1, 2, 3});
    const Tletter* original = d.letter();
    std::uint64_t copies = Tletter::sCopyCount;
    d.makeWriter(); // held once: no copy
    EXPECT_EQ(d.letter(), original);
    EXPECT_EQ(Tletter::sCopyCount, copies);
    d.makeHolder();

    Tdata shared = d;
    d.makeWriter(); // held twice: copied, and the other holder keeps its numbers
    EXPECT_NE(d.letter(), original);
    EXPECT_EQ(Tletter::sCopyCount, copies + 1);
    d.as<TdataDoubleArray>()->array()[0] = 42;
    EXPECT_EQ(shared.as<TdataDoubleArray>()->array()[0], 1);
    EXPECT_TRUE(d.isLetterWritable());
}

TEST_F(GraphTest, ArrayComputeLeavesItsInputUntouched) {
    auto* vs = TtestSum::sVsData();
    TtestSum* s = makeSum("s");
    s->setAttributeValue(&vs->values, makeData<TdataDoubleArray>(TdoubleArray{1, 2}));
    graph->dirtyDependents(Tplug(s, &vs->values));
    Tdata out;
    s->getAttributeValue(&vs->doubled, out);
    Tdata in;
    s->getAttributeValue(&vs->values, in);
    ASSERT_NE(out.as<TdataDoubleArray>(), nullptr);
    EXPECT_EQ(out.as<TdataDoubleArray>()->array()[1], 4);
    EXPECT_EQ(in.as<TdataDoubleArray>()->array()[1], 2);
    EXPECT_THROW(in.require<TdataVectorArray>(), ThostException);
}

TEST_F(GraphTest, NamesStayUniqueAndDeletedNodesComeBack) {
    auto* vs = TtestSum::sVsData();
    TtestSum* a = makeSum("ball");
    TtestSum* b = makeSum("ball");
    EXPECT_EQ(a->name(), "ball");
    EXPECT_EQ(b->name(), "ball1");
    graph->connect(Tplug(a, &vs->sum), Tplug(b, &vs->a));
    auto held = graph->detachNode(a);
    EXPECT_EQ(graph->findNode("ball"), nullptr);
    EXPECT_TRUE(Tplug(b, &vs->a).source().isNull());
    graph->reattachNode(std::move(held));
    EXPECT_EQ(graph->findNode("ball"), a);
}

TEST_F(GraphTest, DynamicAttributesJoinTheNode) {
    TtestSum* s = makeSum("s");
    auto attr = std::make_unique<TattributeDouble>("extra", "ex", makeIffTag("XTRA"));
    attr->setNativeDefaultData(2.5);
    Tattribute* raw = attr.get();
    ASSERT_TRUE(s->addAttribute(std::move(attr)));
    EXPECT_EQ(s->attribute("ex"), raw);
    EXPECT_DOUBLE_EQ(pull(s, raw), 2.5);
    EXPECT_FALSE(s->addAttribute(std::make_unique<TattributeDouble>("extra", "e2", makeIffTag("XTR2"))));
    auto back = s->removeAttribute(raw);
    EXPECT_EQ(back.get(), raw);
    EXPECT_EQ(s->attribute("extra"), nullptr);
}

} // namespace
