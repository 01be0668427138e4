// Change publication: Poldo::Publisher, Poldo::Notification and observers.
#include "IgpCommon/framework/Publisher.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "IgpCommon/framework/TypeData.h"

namespace {

/// A key whose equality looks at the identifier only (the cookie is noise), so
/// that keyIsEq can be seen to use the key type's own operator==.
struct NeighborKey {
    std::uint32_t id;
    std::uint32_t cookie;
    friend bool operator==(const NeighborKey& a, const NeighborKey& b) noexcept { return a.id == b.id; }
};

struct OtherKey {
    std::uint32_t id;
};

/// An observed test entity. typeData() counts its calls so that a test can see
/// whether a notification was built at all.
class Router {
public:
    enum Attr : Kest::AttrId { metric = 130, neighbor = 131, name = 132 };

    static int typeDataCalls;
    static const Kest::TypeData& typeData() {
        ++typeDataCalls;
        static constexpr Kest::AttrData attrs[] = {
            {"metric", metric, Kest::AttrKind::scalar},
            {"neighbor", neighbor, Kest::AttrKind::hashCollection, 0x1234u},
            {"name", name, Kest::AttrKind::scalar},
        };
        static constexpr Kest::TypeData t{"Test::Router", Kest::TypeKind::entity, attrs};
        return t;
    }

    Poldo::Publisher& publisher() { return publisher_; }
    void metricIs(std::uint32_t m) {
        const std::uint32_t old = metric_;
        metric_ = m;
        publisher_.publish(*this, metric, old);
    }
    void neighborIs(const NeighborKey& k, const std::string* old) {
        publisher_.publish(*this, neighbor, &k, old);
    }
    void publishUnknownAttr() { publisher_.publish<Router, void, int>(*this, 199, nullptr, nullptr); }
    std::uint32_t metricValue() const { return metric_; }

private:
    Poldo::Publisher publisher_;
    std::uint32_t metric_ = 0;
};
int Router::typeDataCalls = 0;

/// Records the old metrics it hears; an optional action runs after recording.
class Recorder : public Poldo::Observer {
public:
    void onChange(const Poldo::Notification& n) override {
        const std::uint32_t* o = n.oldValue<std::uint32_t>();
        oldMetrics.push_back(o != nullptr ? std::optional<std::uint32_t>(*o) : std::nullopt);
        if (action) {
            action(n);
        }
    }
    std::size_t heard() const { return oldMetrics.size(); }
    std::vector<std::optional<std::uint32_t>> oldMetrics;
    std::function<void(const Poldo::Notification&)> action;
};

TEST(PublisherTest, ScalarChangeCarriesEntityAttributeAndTypedOldValue) {
    Router r;
    int calls = 0;
    Poldo::FunctionObserver obs([&](const Poldo::Notification& n) {
        ++calls;
        EXPECT_EQ(n.entity<Router>(), &r);
        EXPECT_EQ(n.entity<NeighborKey>(), nullptr);
        EXPECT_EQ(n.entityType().name, "Test::Router");
        EXPECT_EQ(n.attr(), Router::metric);
        EXPECT_EQ(n.attrName(), "metric");
        EXPECT_FALSE(n.hasKey());
        EXPECT_EQ(n.key<NeighborKey>(), nullptr);
        EXPECT_FALSE(n.keyIsEq(NeighborKey{0, 0}));
        ASSERT_TRUE(n.hasOldValue());
        ASSERT_NE(n.oldValue<std::uint32_t>(), nullptr);
        EXPECT_EQ(*n.oldValue<std::uint32_t>(), 5u);
        EXPECT_EQ(n.oldValue<std::int32_t>(), nullptr) << "an old value of another type must read as null";
        EXPECT_EQ(n.oldValue<std::uint64_t>(), nullptr);
        EXPECT_EQ(n.entity<Router>()->metricValue(), 9u)
            << "the entity holds the new value during the callback";
    });
    r.metricIs(5);
    r.publisher().observerIs(obs);
    r.metricIs(9);
    r.publisher().observerDel(obs);
    r.metricIs(10);
    EXPECT_EQ(calls, 1);

    // An attribute id the type does not know has an empty name.
    Poldo::FunctionObserver unknown([&](const Poldo::Notification& n) {
        ++calls;
        EXPECT_EQ(n.attr(), 199);
        EXPECT_EQ(n.attrName(), "");
        EXPECT_FALSE(n.hasKey() || n.hasOldValue());
    });
    r.publisher().observerIs(unknown);
    r.publishUnknownAttr();
    EXPECT_EQ(calls, 2);
}

TEST(PublisherTest, CollectionChangeCarriesTypedKeyAndOldValueNullForInsertion) {
    Router r;
    int calls = 0;
    const std::string oldName = "old neighbor";
    Poldo::FunctionObserver obs([&](const Poldo::Notification& n) {
        ++calls;
        EXPECT_EQ(n.attr(), Router::neighbor);
        EXPECT_EQ(n.attrName(), "neighbor");
        ASSERT_TRUE(n.hasKey());
        ASSERT_NE(n.key<NeighborKey>(), nullptr);
        EXPECT_EQ(n.key<NeighborKey>()->id, 42u);
        EXPECT_EQ(n.key<OtherKey>(), nullptr);
        EXPECT_EQ(n.key<std::uint32_t>(), nullptr);
        EXPECT_TRUE(n.keyIsEq(NeighborKey{42, 777}));  // the key type's own equality
        EXPECT_FALSE(n.keyIsEq(NeighborKey{43, 1}));
        EXPECT_FALSE(n.keyIsEq(OtherKey{42}));
        EXPECT_EQ(n.hasOldValue(), calls == 2);
        EXPECT_EQ(n.oldValue<std::uint32_t>(), nullptr);
        if (calls == 1) {
            EXPECT_EQ(n.oldValue<std::string>(), nullptr);
        } else {
            ASSERT_NE(n.oldValue<std::string>(), nullptr);
            EXPECT_EQ(*n.oldValue<std::string>(), oldName);
        }
    });
    r.publisher().observerIs(obs);
    r.neighborIs(NeighborKey{42, 1}, nullptr);
    r.neighborIs(NeighborKey{42, 2}, &oldName);
    EXPECT_EQ(calls, 2);
}

TEST(PublisherTest, InitialStateBuildsNoNotificationAndEndsForGoodAtTheFirstRegistration) {
    Router r;
    Recorder rec;
    Router::typeDataCalls = 0;
    r.publisher().observerDel(rec);  // unknown observer: ignored, still initial
    EXPECT_TRUE(r.publisher().initialState());
    EXPECT_EQ(r.publisher().observerCount(), 0u);
    r.metricIs(1);
    r.neighborIs(NeighborKey{1, 0}, nullptr);
    EXPECT_EQ(Router::typeDataCalls, 0) << "publishing in the initial state built a notification";

    r.publisher().observerIs(rec);
    EXPECT_FALSE(r.publisher().initialState());
    r.metricIs(2);
    EXPECT_EQ(Router::typeDataCalls, 1);
    r.publisher().observerDel(rec);
    EXPECT_FALSE(r.publisher().initialState());
    EXPECT_EQ(r.publisher().observerCount(), 0u);
    r.metricIs(3);
    EXPECT_EQ(rec.heard(), 1u);
}

TEST(PublisherTest, RegisteringTwiceDeliversOnceAndOneUnregistrationRemovesIt) {
    Router r;
    Recorder a;
    Recorder b;
    r.publisher().observerIs(a);
    r.publisher().observerIs(b);
    r.publisher().observerIs(a);
    EXPECT_EQ(r.publisher().observerCount(), 2u);
    r.metricIs(1);
    r.publisher().observerDel(a);
    r.metricIs(2);
    EXPECT_EQ(a.heard(), 1u);
    EXPECT_EQ(b.heard(), 2u);
}

// Observers that change the observer list from inside a callback. Four observers registered in
// order; each scenario gives some of them an action, publishes twice and counts who heard what.
class PublisherReentry : public ::testing::Test {
protected:
    void SetUp() override {
        for (auto& o : obs) {
            r.publisher().observerIs(o);
        }
    }
    std::vector<std::size_t> heardTwice() {
        r.metricIs(1);
        r.metricIs(2);
        return {obs[0].heard(), obs[1].heard(), obs[2].heard(), obs[3].heard()};
    }
    using Counts = std::vector<std::size_t>;
    Router r;
    Recorder obs[4];
};

TEST_F(PublisherReentry, AnObserverLeavingItselfDoesNotDisturbTheOthers) {
    obs[1].action = [&](const Poldo::Notification&) { r.publisher().observerDel(obs[1]); };
    EXPECT_EQ(heardTwice(), (Counts{2, 1, 2, 2}));
    EXPECT_EQ(r.publisher().observerCount(), 3u);
}

TEST_F(PublisherReentry, RemovingEarlierObserversSkipsNoLaterOne) {
    obs[2].action = [&](const Poldo::Notification&) {
        r.publisher().observerDel(obs[0]);
        r.publisher().observerDel(obs[1]);
    };
    EXPECT_EQ(heardTwice(), (Counts{1, 1, 2, 2}));
}

TEST_F(PublisherReentry, AnObserverRemovedAndDestroyedByAnotherIsNotCalledAgain) {
    auto victim = std::make_unique<Recorder>();
    r.publisher().observerDel(obs[3]);
    r.publisher().observerIs(*victim);
    r.publisher().observerIs(obs[3]);
    obs[0].action = [&](const Poldo::Notification&) {
        if (victim) {
            r.publisher().observerDel(*victim);
            victim.reset();  // destroyed: calling it now would be a use after free
        }
    };
    EXPECT_EQ(heardTwice(), (Counts{2, 2, 2, 2}));
    EXPECT_EQ(r.publisher().observerCount(), 4u);
}

TEST_F(PublisherReentry, ObserversRegisteredDuringAPublicationHearOnlyTheNextOne) {
    Recorder late;
    std::vector<std::unique_ptr<Recorder>> many;  // enough to force the observer list to reallocate
    obs[0].action = [&](const Poldo::Notification&) {
        r.publisher().observerIs(late);
        for (int i = 0; i < 40; ++i) {
            many.push_back(std::make_unique<Recorder>());
            r.publisher().observerIs(*many.back());
        }
        obs[0].action = nullptr;
    };
    EXPECT_EQ(heardTwice(), (Counts{2, 2, 2, 2}));
    EXPECT_EQ(late.oldMetrics, (std::vector<std::optional<std::uint32_t>>{1u}));
    for (const auto& m : many) {
        EXPECT_EQ(m->heard(), 1u);
        r.publisher().observerDel(*m);
    }
}

TEST_F(PublisherReentry, AnObserverLeavingAndReturningInOneCallbackHearsTheNextChangeOnce) {
    obs[0].action = [&](const Poldo::Notification&) {
        r.publisher().observerDel(obs[0]);
        r.publisher().observerIs(obs[0]);
        obs[0].action = nullptr;
    };
    EXPECT_EQ(heardTwice(), (Counts{2, 2, 2, 2}));
    EXPECT_EQ(r.publisher().observerCount(), 4u);
}

TEST_F(PublisherReentry, AnObserverMayChangeTheEntityFromInsideTheCallback) {
    obs[0].action = [&](const Poldo::Notification& n) {
        if (n.entity<Router>()->metricValue() > 100) {
            r.metricIs(100);  // nested publication
            r.publisher().observerDel(obs[3]);
        }
    };
    r.metricIs(500);
    EXPECT_EQ(r.metricValue(), 100u);
    // Observer 0 hears both changes; observer 3 hears the nested one, then is gone before the outer
    // publication reaches it.
    using Olds = std::vector<std::optional<std::uint32_t>>;
    EXPECT_EQ(obs[0].oldMetrics, (Olds{0u, 500u}));
    EXPECT_EQ(obs[1].oldMetrics, (Olds{500u, 0u}));
    EXPECT_EQ(obs[3].oldMetrics, (Olds{500u}));
    EXPECT_EQ(r.publisher().observerCount(), 3u);
}

}  // namespace
