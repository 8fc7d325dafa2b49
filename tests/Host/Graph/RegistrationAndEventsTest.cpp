// Node types enter the catalogue at load; their descriptors are built on first
// use and freed by sCleanupClass. Time, unit and range changes reach clients.

#include "GraphTestNodes.h"
#include "Host/Dag/Ttransform.h"
#include "Host/Time/TanimInfo.h"
#include "Host/Time/TtimeEvents.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(NodeCatalogue, TypesAreRegisteredAtLoadWithTheirTags) {
    const TdependNodeMetaClass* t = TnodeTypeRegistry::find("transform");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->iffTag(), makeIffTag("XFRM"));
    EXPECT_TRUE(t->metaclass().derivesFrom(TdagObject::sMetaclass()));
    ASSERT_NE(TnodeTypeRegistry::find("mesh"), nullptr);
    ASSERT_NE(TnodeTypeRegistry::find("time"), nullptr);
    // A base class is known by name but cannot be made.
    ASSERT_NE(TnodeTypeRegistry::find("dagNode"), nullptr);
    EXPECT_TRUE(TnodeTypeRegistry::find("dagNode")->metaclass().isAbstract());
    EXPECT_EQ(TnodeTypeRegistry::find("noSuchType"), nullptr);
}

TEST(NodeCatalogue, DescriptorsAreRebuiltAfterCleanup) {
    TdnVSTtestSum* first = TtestSum::sVsData();
    ASSERT_TRUE(first->isInitialized());
    EXPECT_EQ(first->findAttribute("sum"), &first->sum);
    EXPECT_EQ(first->findAttribute("s"), &first->sum); // short names find it too
    TtestSum::sCleanupClass();
    TdnVSTtestSum* second = TtestSum::sVsData();
    ASSERT_TRUE(second->isInitialized());
    EXPECT_EQ(second->findAttribute("sum"), &second->sum);
    // The dependency table is there again: a changes sum.
    const auto& affected = second->affects(second->a.index());
    EXPECT_NE(std::find(affected.begin(), affected.end(), second->sum.index()), affected.end());
}

class CountingClient : public Tclient {
public:
    void triggered(int) override { ++count; }
    int count = 0;
};

TEST(TimeEvents, ClientsHearTimeUnitAndRangeChanges) {
    TdependGraph graph;
    TdependGraph* previous = &TdependGraph::current();
    TdependGraph::setCurrent(&graph);
    CountingClient time, unit, range;
    TtimeEvents::timeChanged().addClient(&time);
    TtimeEvents::timeUnitChanged().addClient(&unit);
    TtimeEvents::rangeChanged().addClient(&range);

    graph.setTime(TanimTime(3.0, kCurrentFrameUnit));
    EXPECT_EQ(time.count, 1);
    TtimeUnit::setCurrent(kPal);
    TtimeUnit::setCurrent(kPal); // no change, no message
    EXPECT_EQ(unit.count, 1);
    TtimeUnit::setCurrent(kFilm);
    TanimInfo& info = TanimInfo::currAnimInfo();
    const TanimTime start = info.startTime(), end = info.endTime();
    info.setRange(start, end + TanimTime(1.0, kCurrentFrameUnit));
    EXPECT_EQ(range.count, 1);
    info.setRange(start, end);

    TtimeEvents::timeChanged().removeClient(&time);
    TtimeEvents::timeUnitChanged().removeClient(&unit);
    TtimeEvents::rangeChanged().removeClient(&range);
    graph.clear();
    TdependGraph::setCurrent(previous);
}

} // namespace
