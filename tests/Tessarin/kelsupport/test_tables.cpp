#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "Tessarin/kelsupport/basehash_table.h"
#include "Tessarin/kelsupport/basellist.h"
#include "Tessarin/kelsupport/basememchunk.h"
#include "Tessarin/kelsupport/basepairtable.h"
#include "capture.h"

TEST(Lists, CursorIteratorAndFreeList) {
    message_capture cap;
    int a = 1, b = 2, c = 3, d = 4;
    llist<int> l;
    l.append(&a);
    l.append(&b);
    l.append(&c);
    l.prepend(&d);
    EXPECT_EQ(l.size(), 4);
    EXPECT_EQ(*l.head(), 4);
    EXPECT_EQ(*l.nth(2), 2);

    // The list's own cursor removes b; an inner iterator walks the same list undisturbed.
    l.start();
    l.advance();
    l.advance();
    int inner = 0;
    for (basellist_iter it(l); it.more(); it.advance())
        inner += *static_cast<int*>(it());
    EXPECT_EQ(inner, 10);
    EXPECT_EQ(*l.current(), 2);
    EXPECT_EQ(*l.take(), 2);
    EXPECT_EQ(*l.current(), 3);
    int sum = 0;
    for (int* p : l)
        sum += *p;
    EXPECT_EQ(sum, 8);

    int free_before = basellist::free_nodes();
    l.clear();
    EXPECT_EQ(basellist::free_nodes(), free_before + 3);
    l.append(&a); // reuses a node from the free list
    EXPECT_EQ(basellist::free_nodes(), free_before + 2);
    l.remove(&b);
    EXPECT_EQ(cap.last_fatal(), "basellist::take: cannot locate item");
    (void)l.nth(7);
    EXPECT_EQ(cap.last_fatal(), "basellist::nth: item # 7 does not exist");
    llist<int> empty;
    EXPECT_EQ(empty.head(), nullptr);
    EXPECT_EQ(cap.last_fatal(), "llist::head: empty list");
    empty.start();
    (void)empty.take();
    EXPECT_EQ(cap.last_fatal(), "basellist::take: empty list");
    basellist_iter loose;
    loose.start();
    EXPECT_EQ(cap.last_fatal(), "basellist_iter::start: not pointing to any list");
}

TEST(MemChunk, BlockArithmetic) {
    basememchunk m(16);
    EXPECT_EQ(m.per_block(), (4084 - 16) / 16); // 254
    void* first = m.alloc();
    for (int i = 1; i < m.per_block(); ++i)
        m.alloc();
    EXPECT_EQ(m.blocks(), 1);
    m.alloc();
    EXPECT_EQ(m.blocks(), 2);
    m.free(first);
    EXPECT_EQ(m.alloc(), first); // freed elements are reused first
}

TEST(HashTable, HashRuleAndLookups) {
    message_capture cap;
    // "ab": h = (0+0)^97 = 97; (97+97)^98 = 194^98 = 160; 160 % 7 = 6.
    EXPECT_EQ(basehash_table::hash("ab", 7), 6);
    // A byte above 127 is negative: h = 0 ^ -1 = -1, absolute 1.
    EXPECT_EQ(basehash_table::hash("\xff", 5), 1);
    basehash_table t(7);
    int x = 1, y = 2;
    t.insert("alpha", &x);
    t.insert("beta", &y);
    EXPECT_EQ(t["beta"], &y);
    EXPECT_EQ(t.lookup("alpha"), &x);
    EXPECT_EQ(t.lookup("gamma"), nullptr);
    (void)t["gamma"];
    EXPECT_EQ(cap.last_fatal(), "basehash_table::[]: entry 'gamma' not found");
    EXPECT_EQ(t.remove("alpha"), &x);
    EXPECT_FALSE(t.find("alpha"));
    t.remove("alpha");
    EXPECT_EQ(cap.last_fatal(), "basehash_table::remove: entry 'alpha' not found");
    basehash_table bad(0);
    EXPECT_EQ(cap.last_fatal(), "basehash_table::basehash_table: bad size (0)");
}

TEST(PairTable, UnorderedPairsAndHash) {
    auto* a = reinterpret_cast<void*>(uintptr_t(0x12340005));
    auto* b = reinterpret_cast<void*>(uintptr_t(0x00010003));
    // a has the larger low half: word = 0x0005 | (b << 16) = 0x0005 | 0x00030000 (truncated).
    EXPECT_EQ(basepairtable::hash(a, b, 337), int(uint32_t(0x00030005) % 337));
    EXPECT_EQ(basepairtable::hash(a, b, 337), basepairtable::hash(b, a, 337));

    basepairtable t(337);
    int v = 7, w = 8;
    t.insert(a, b, &v);
    EXPECT_EQ(t.lookup(b, a), &v);
    EXPECT_TRUE(t.find(b, a));
    EXPECT_FALSE(t.insert_if_absent(b, a, &w));
    t.insert_or_replace(b, a, &w);
    EXPECT_EQ(t.lookup(a, b), &w);
    EXPECT_EQ(t.size(), 1);
    EXPECT_EQ(t.remove(b, a), &w);
    EXPECT_EQ(t.lookup(a, b), nullptr);
    EXPECT_EQ(t.remove(a, b), nullptr);
    // Equal low halves still hash symmetrically.
    auto* c = reinterpret_cast<void*>(uintptr_t(0x77770003));
    EXPECT_EQ(basepairtable::hash(b, c, 337), basepairtable::hash(c, b, 337));
}

TEST(PairTable, InsertIsUnconditionalAndRemovalGoesHeadFirst) {
    basepairtable t(7);
    int a = 0, b = 0, v1 = 1, v2 = 2;
    t.insert(&a, &b, &v1);
    t.insert(&b, &a, &v2); // a second entry for the same pair, at the head
    EXPECT_EQ(t.size(), 2);
    EXPECT_EQ(t.lookup(&a, &b), &v2);
    EXPECT_EQ(t.remove(&a, &b), &v2);
    EXPECT_EQ(t.lookup(&a, &b), &v1);
    EXPECT_TRUE(t.insert_if_absent(&a, &a, &v2));
    EXPECT_EQ(t.lookup(&a, &a), &v2);
}

TEST(HashTable, CacheDoesNotHideRemoval) {
    basehash_table t(3);
    int x = 1;
    t.insert("k", &x);
    EXPECT_EQ(t.lookup("k"), &x); // now cached
    t.remove("k");
    EXPECT_EQ(t.lookup("k"), nullptr);
    EXPECT_EQ(t.size(), 0);
}
