// Kest::HashMap2018 with its members in place: walks that remove members, and the moves between
// the inline array and a heap table, which must keep the (hash, key) order.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "IgpCommon/framework/HashMap2018.h"
#include "tests/support/AllocationCounter.h"

namespace {

using Set = Kest::HashSet<std::uint32_t, 0x51a7e5u, 3>;

std::vector<std::uint32_t> walk(const Set& s) {
    std::vector<std::uint32_t> v;
    for (const std::uint32_t m : s) {
        v.push_back(m);
    }
    return v;
}

TEST(HashMap2018InlineTest, RemovingTheCurrentMemberVisitsEveryOtherMemberOnce) {
    for (unsigned drop = 0; drop < 8; ++drop) {  // bit i: remove the i-th member visited
        for (const bool throughIterator : {true, false}) {
            Set s;
            for (const std::uint32_t m : {70u, 10u, 40u}) {
                s.insert(m);
            }
            const std::vector<std::uint32_t> order = walk(s);
            std::vector<std::uint32_t> visited;
            unsigned i = 0;
            for (auto it = s.begin(); it != s.end(); ++it, ++i) {
                const std::uint32_t m = *it;
                visited.push_back(m);
                if (((drop >> i) & 1u) != 0) {
                    throughIterator ? s.erase(it) : static_cast<void>(s.erase(m));
                }
            }
            EXPECT_EQ(visited, order) << "drop " << drop;
            EXPECT_EQ(s.size(), 3u - static_cast<unsigned>(__builtin_popcount(drop)));
        }
    }
}

TEST(HashMap2018InlineDeathTest, RemovingAnotherMemberDuringIterationAborts) {
    Set s;
    for (const std::uint32_t m : {1u, 2u, 3u}) {
        s.insert(m);
    }
    const std::vector<std::uint32_t> order = walk(s);
    EXPECT_DEATH(
        {
            auto it = s.begin();
            s.erase(order[2]);
            ++it;
        },
        "version_ == hashMap_->version\\(\\)");
    EXPECT_DEATH(
        {
            auto it = s.begin();
            s.erase(it);
            s.erase(order[2]);
            ++it;
        },
        "version_ == hashMap_->version\\(\\)");
}

TEST(HashMap2018InlineTest, OutgrowingTheInlineArrayKeepsTheOrderAndClearReturnsToIt) {
    Set grown;
    Set fresh;
    for (std::uint32_t m = 1; m <= 4; ++m) {
        grown.insert(m);
    }
    for (std::uint32_t m = 4; m >= 2; --m) {
        fresh.insert(m);
    }
    grown.erase(1u);  // three members again, still in the heap table
    EXPECT_EQ(walk(grown), walk(fresh)) << "a heap table and the inline array order alike";

    grown.clear();
    const testsupport::AllocationScope scope;
    for (std::uint32_t m = 4; m >= 2; --m) {
        grown.insert(m);
    }
    EXPECT_EQ(scope.count(), 0u) << "cleared, the members are in place again";
    EXPECT_EQ(walk(grown), walk(fresh));
}

}  // namespace
