// Flexible-algorithm constraints (IgpFlexAlgoEag, IgpFlexAlgoSrlg) and IgpFlexAlgoDefinition.
#include "IgpCommon/FlexAlgo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using Routing::IgpCommon::IgpFlexAlgoDefinition;
using Routing::IgpCommon::IgpFlexAlgoEag;
using Routing::IgpCommon::igpFlexAlgoEagFactory;
using Routing::IgpCommon::IgpFlexAlgoSrlg;
using Routing::IgpCommon::igpFlexAlgoSrlgFactory;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using testsupport::eag;
using testsupport::srlg;

std::uintptr_t addr(const void* p) {
    return reinterpret_cast<std::uintptr_t>(p);
}

// ---- IgpFlexAlgoEag and IgpFlexAlgoSrlg -----------------------------------------------------

TEST(IgpFlexAlgoEag, PushAppendsAndPopRemovesTheLastWordAndPublishesItsIndex) {
    auto e = igpFlexAlgoEagFactory();
    IgpTest::RecordingObserver<std::uint32_t> rec(e->publisher());
    e->valuePush(10);
    e->valuePush(20);
    EXPECT_THAT(e->values(), ElementsAre(10u, 20u));
    EXPECT_EQ(e->valuePop(), 20u);
    EXPECT_THAT(e->values(), ElementsAre(10u));

    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[0].keyAs<std::uint32_t>(), 0u);
    EXPECT_FALSE(rec[0].hasOldValue);
    EXPECT_EQ(*rec[1].keyAs<std::uint32_t>(), 1u);
    EXPECT_EQ(*rec[2].keyAs<std::uint32_t>(), 1u);
    ASSERT_NE(rec[2].oldAs<std::uint32_t>(), nullptr);
    EXPECT_EQ(*rec[2].oldAs<std::uint32_t>(), 20u);
}

TEST(IgpFlexAlgoEag, PopOnEmptyAndWriteAtOrBeyondTheLengthThrow) {
    auto e = igpFlexAlgoEagFactory();
    EXPECT_THROW(e->valuePop(), Poldo::EmptyVectorException);

    auto three = eag({1, 2, 3});
    EXPECT_THROW(three->valueIs(3, 9), Poldo::VectorOutOfRangeException);
    EXPECT_THROW((void)three->value(3), Poldo::VectorOutOfRangeException);
    EXPECT_THAT(three->values(), ElementsAre(1u, 2u, 3u)) << "valueIs must never append";
    three->valueIs(2, 9);
    EXPECT_THAT(three->values(), ElementsAre(1u, 2u, 9u));
}

TEST(IgpFlexAlgoConstraints, AdminGroupsCompareAndPrintInOrderSrlgsAsSortedSets) {
    EXPECT_TRUE(eag({1, 2, 3})->compare(eag({1, 2, 3}).get()));
    EXPECT_FALSE(eag({1, 2, 3})->compare(eag({3, 2, 1}).get()));
    EXPECT_FALSE(eag({1, 2})->compare(eag({1, 2, 3}).get()));
    EXPECT_FALSE(eag({})->compare(nullptr));
    EXPECT_EQ(eag({3, 1, 2})->toStrep(), "[3, 1, 2]");
    EXPECT_EQ(eag({})->toStrep(), "[]");

    auto s = srlg({30, 4, 17});
    EXPECT_EQ(s->toStrep(), "[4, 17, 30]");
    EXPECT_TRUE(s->compare(srlg({17, 30, 4}).get()));
    EXPECT_FALSE(s->compare(srlg({4, 17}).get()));
    EXPECT_FALSE(s->compare(srlg({4, 17, 31}).get()));
    EXPECT_FALSE(s->compare(nullptr));
    EXPECT_EQ(srlg({})->toStrep(), "[]");
}

// ---- IgpFlexAlgoDefinition: identity ----------------------------------------------------------

IgpFlexAlgoDefinition numbered(std::uint8_t algo) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(algo);
    d.metricTypeIs(1);
    d.priorityIs(100);
    d.excludeAny()->valuePush(5);
    return d;
}

TEST(IgpFlexAlgoDefinition, EqualContentInSeparateObjectsIsNotEqualAndOrdersByAddress) {
    const IgpFlexAlgoDefinition a = numbered(128);
    const IgpFlexAlgoDefinition b = numbered(128);
    ASSERT_TRUE(a.excludeAny()->compare(b.excludeAny().get()));
    EXPECT_FALSE(IgpFlexAlgoDefinition::isEq(a, b));
    EXPECT_FALSE(a == b);
    // excludeAny is the first constraint compared, and it differs in address.
    EXPECT_EQ(a <=> b, addr(a.excludeAny().get()) <=> addr(b.excludeAny().get()));
    EXPECT_NE(a <=> b, std::strong_ordering::equal);
}

TEST(IgpFlexAlgoDefinition, CopySharesTheConstraintObjectsAndIsEqualAndHashesAlike) {
    const IgpFlexAlgoDefinition a = numbered(128);
    const IgpFlexAlgoDefinition copy = a;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(a, copy));
    EXPECT_EQ(a <=> copy, std::strong_ordering::equal);
    EXPECT_EQ(copy.excludeAny().get(), a.excludeAny().get());
    EXPECT_EQ(copy.excludeSrlg().get(), a.excludeSrlg().get());
    for (std::uint32_t seed : {0u, 77u}) {
        EXPECT_EQ(a.hash(seed), copy.hash(seed));
    }
    // Identity, not content: an equal-content twin hashes elsewhere (a 2^-32 collision aside).
    EXPECT_NE(a.hash(0), numbered(128).hash(0));
}

TEST(IgpFlexAlgoDefinition, DefaultHasZeroNumbersAndFreshConstraintsOfItsOwn) {
    const IgpFlexAlgoDefinition a;
    const IgpFlexAlgoDefinition b;
    EXPECT_TRUE(static_cast<bool>(a));
    EXPECT_EQ(a.flexAlgo() + a.metricType() + a.calcType() + a.priority() + a.lspFragmentId(), 0);
    ASSERT_TRUE(a.excludeAny() && a.includeAny() && a.includeAll() && a.excludeSrlg());
    EXPECT_EQ(a.excludeAny()->valueCount() + a.includeAny()->valueCount() + a.includeAll()->valueCount(), 0u);
    EXPECT_EQ(a.excludeSrlg()->value().size(), 0u);
    // Four distinct objects, none shared with another default definition.
    const void* mine[] = {a.excludeAny().get(), a.includeAny().get(), a.includeAll().get(),
                          a.excludeSrlg().get()};
    const void* theirs[] = {b.excludeAny().get(), b.includeAny().get(), b.includeAll().get(),
                            b.excludeSrlg().get()};
    for (const void* p : mine) {
        EXPECT_EQ(std::count(std::begin(mine), std::end(mine), p), 1);
        EXPECT_EQ(std::count(std::begin(theirs), std::end(theirs), p), 0);
    }
    EXPECT_FALSE(a == b);
}

// ---- IgpFlexAlgoDefinition: combineSubTlvs ----------------------------------------------------

class FlexAlgoCombine : public ::testing::Test {
protected:
    void SetUp() override {
        mine.excludeAnyIs(eag({1, 2}));
        mine.excludeSrlgIs(srlg({10, 11}));
        mine.lspFragmentIdIs(3);
    }
    IgpFlexAlgoDefinition mine;
    IgpFlexAlgoDefinition other;
};

TEST_F(FlexAlgoCombine, ANonEmptyListTakesTheWordsOfTheSameOrALowerFragmentOnlyAndNoPointerChanges) {
    for (const std::uint8_t fragment : {std::uint8_t{5}, std::uint8_t{3}, std::uint8_t{0}}) {
        SetUp();
        other.excludeAnyIs(eag({7}));
        other.lspFragmentIdIs(fragment);
        const IgpFlexAlgoEag* before = mine.excludeAny().get();
        mine.combineSubTlvs(other);
        EXPECT_EQ(mine.excludeAny()->values(),
                  (fragment > 3 ? std::vector<std::uint32_t>{1, 2} : std::vector<std::uint32_t>{7}))
            << "other's fragment " << unsigned{fragment};
        EXPECT_EQ(mine.excludeAny().get(), before);
        EXPECT_THAT(other.excludeAny()->values(), ElementsAre(7u));
    }
}

TEST_F(FlexAlgoCombine, AnEmptyListOnEitherSideNeverLosesWords) {
    other.lspFragmentIdIs(0);  // other's empty list, from a lower fragment
    mine.combineSubTlvs(other);
    EXPECT_THAT(mine.excludeAny()->values(), ElementsAre(1u, 2u));

    // Our empty includeAll takes other's words whatever the fragments.
    other.includeAllIs(eag({8, 9}));
    other.lspFragmentIdIs(200);
    mine.combineSubTlvs(other);
    EXPECT_THAT(mine.includeAll()->values(), ElementsAre(8u, 9u));
    EXPECT_THAT(mine.includeAny()->values(), IsEmpty());
}

TEST_F(FlexAlgoCombine, SrlgsAreAlwaysUnited) {
    other.excludeSrlgIs(srlg({11, 12}));
    other.lspFragmentIdIs(9);
    mine.combineSubTlvs(other);
    EXPECT_EQ(mine.excludeSrlg()->toStrep(), "[10, 11, 12]");
    other.lspFragmentIdIs(0);
    other.excludeSrlgIs(srlg({1}));
    mine.combineSubTlvs(other);
    EXPECT_EQ(mine.excludeSrlg()->toStrep(), "[1, 10, 11, 12]");
}

TEST_F(FlexAlgoCombine, WithACopyOfItselfEveryNonEmptyAdminGroupListIsEmptied) {
    mine.includeAllIs(eag({5}));
    const IgpFlexAlgoDefinition copy = mine;
    mine.combineSubTlvs(copy);
    EXPECT_THAT(mine.excludeAny()->values(), IsEmpty());
    EXPECT_THAT(mine.includeAny()->values(), IsEmpty());
    EXPECT_THAT(mine.includeAll()->values(), IsEmpty());
    EXPECT_EQ(mine.excludeSrlg()->toStrep(), "[10, 11]");
}

// ---- IgpFlexAlgoDefinition: text ----------------------------------------------------------------

constexpr const char kDefinitionText[] =
    "Value('Routing::IgpCommon::IgpFlexAlgoDefinition', ** {'flexAlgo': 128, 'metricType': 1, 'calcType': 0, "
    "'priority': 200, 'excludeAny': [1, 2], 'includeAny': [], 'includeAll': [3], 'excludeSrlg': [4, 17, 30], "
    "'lspFragmentId': 3})";

TEST(IgpFlexAlgoDefinitionText, WriteReadWriteGivesTheSameTextInNewObjects) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(128);
    d.metricTypeIs(1);
    d.priorityIs(200);
    d.excludeAnyIs(eag({1, 2}));
    d.includeAllIs(eag({3}));
    d.excludeSrlgIs(srlg({30, 4, 17}));
    d.lspFragmentIdIs(3);

    const std::string text = Kest::strep(d);
    EXPECT_EQ(text, kDefinitionText);
    const IgpFlexAlgoDefinition back = Kest::strepToValue(text, static_cast<IgpFlexAlgoDefinition*>(nullptr));
    EXPECT_EQ(Kest::strep(back), text);
    EXPECT_NE(back.excludeAny().get(), d.excludeAny().get());
    EXPECT_TRUE(back.excludeAny()->compare(d.excludeAny().get()));
    EXPECT_TRUE(back.excludeSrlg()->compare(d.excludeSrlg().get()));
    EXPECT_EQ(back.excludeAny()->useCount(), 1u);
}

TEST(IgpFlexAlgoDefinitionText, NoneReadsAsANullPointerAndWritesBack) {
    const std::string text =
        "Value('Routing::IgpCommon::IgpFlexAlgoDefinition', ** {'flexAlgo': 129, 'metricType': 0, "
        "'calcType': 0, "
        "'priority': 0, 'excludeAny': None, 'includeAny': [], 'includeAll': None, 'excludeSrlg': None, "
        "'lspFragmentId': 0})";
    const IgpFlexAlgoDefinition d = Kest::strepToValue(text, static_cast<IgpFlexAlgoDefinition*>(nullptr));
    EXPECT_FALSE(d.excludeAny());
    EXPECT_FALSE(d.includeAll());
    EXPECT_FALSE(d.excludeSrlg());
    ASSERT_TRUE(d.includeAny());
    EXPECT_EQ(Kest::strep(d), text);
}

TEST(IgpFlexAlgoDefinitionText, ABadSrlgNumberNamesTheAttribute) {
    std::string text = kDefinitionText;
    text.replace(text.find("[4, 17, 30]"), 11, "[4, 4294967296]");
    EXPECT_EQ(testsupport::messageOf<Kest::AttributeParseException>([&] {
                  (void)Kest::strepToValue(text, static_cast<IgpFlexAlgoDefinition*>(nullptr));
              }).rfind("attribute 'excludeSrlg': ", 0),
              0u);
}

}  // namespace
