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
        if (m == metric_) {
            return;
        }
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

struct Seen {
    const Router* entity;
    Kest::AttrId attr;
    std::string attrName;
    std::optional<std::uint32_t> key;
    std::optional<std::uint32_t> oldMetric;
};

/// Records every notification; an optional action runs after recording.
class Recorder : public Poldo::Observer {
public:
    void onChange(const Poldo::Notification& n) override {
        Seen s{n.entity<Router>(), n.attr(), std::string(n.attrName()), std::nullopt, std::nullopt};
        if (const NeighborKey* k = n.key<NeighborKey>()) {
            s.key = k->id;
        }
        if (const std::uint32_t* o = n.oldValue<std::uint32_t>()) {
            s.oldMetric = *o;
        }
        seen.push_back(s);
        if (action) {
            action(n);
        }
    }
    std::vector<Seen> seen;
    std::function<void(const Poldo::Notification&)> action;
};

TEST(PublisherTest, ScalarChangeCarriesEntityAttributeAndTypedOldValue) {
    Router r;
    bool called = false;
    Poldo::FunctionObserver obs([&](const Poldo::Notification& n) {
        called = true;
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
        // The entity already holds the new value during the callback.
        EXPECT_EQ(n.entity<Router>()->metricValue(), 9u);
    });
    r.metricIs(5);
    r.publisher().observerIs(obs);
    r.metricIs(9);
    EXPECT_TRUE(called);
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
        if (calls == 1) {
            EXPECT_FALSE(n.hasOldValue());
            EXPECT_EQ(n.oldValue<std::string>(), nullptr);
        } else {
            ASSERT_TRUE(n.hasOldValue());
            ASSERT_NE(n.oldValue<std::string>(), nullptr);
            EXPECT_EQ(*n.oldValue<std::string>(), oldName);
            EXPECT_EQ(n.oldValue<std::uint32_t>(), nullptr);
        }
    });
    r.publisher().observerIs(obs);
    r.neighborIs(NeighborKey{42, 1}, nullptr);
    r.neighborIs(NeighborKey{42, 2}, &oldName);
    EXPECT_EQ(calls, 2);
}

TEST(PublisherTest, AnAttributeIdTheTypeDoesNotKnowHasAnEmptyName) {
    Router r;
    Recorder rec;
    r.publisher().observerIs(rec);
    r.publishUnknownAttr();
    ASSERT_EQ(rec.seen.size(), 1u);
    EXPECT_EQ(rec.seen[0].attr, 199);
    EXPECT_EQ(rec.seen[0].attrName, "");
    EXPECT_FALSE(rec.seen[0].key.has_value());
    EXPECT_FALSE(rec.seen[0].oldMetric.has_value());
}

TEST(PublisherTest, InitialStateLastsUntilTheFirstRegistrationAndNeverReturns) {
    Router r;
    Recorder rec;
    EXPECT_TRUE(r.publisher().initialState());
    EXPECT_EQ(r.publisher().observerCount(), 0u);
    r.publisher().observerDel(rec);  // unknown observer: ignored, still initial
    EXPECT_TRUE(r.publisher().initialState());

    r.publisher().observerIs(rec);
    EXPECT_FALSE(r.publisher().initialState());
    EXPECT_EQ(r.publisher().observerCount(), 1u);
    r.publisher().observerDel(rec);
    EXPECT_FALSE(r.publisher().initialState());
    EXPECT_EQ(r.publisher().observerCount(), 0u);
    r.metricIs(3);
    EXPECT_TRUE(rec.seen.empty());
}

TEST(PublisherTest, PublishingInTheInitialStateDoesNotEvenBuildTheNotification) {
    Router r;
    Router::typeDataCalls = 0;
    r.metricIs(1);
    r.neighborIs(NeighborKey{1, 0}, nullptr);
    EXPECT_EQ(Router::typeDataCalls, 0);

    Recorder rec;
    r.publisher().observerIs(rec);
    r.metricIs(2);
    EXPECT_EQ(Router::typeDataCalls, 1);
    EXPECT_EQ(rec.seen.size(), 1u);
}

TEST(PublisherTest, RegisteringTwiceDeliversOnce) {
    Router r;
    Recorder a;
    Recorder b;
    r.publisher().observerIs(a);
    r.publisher().observerIs(b);
    r.publisher().observerIs(a);
    EXPECT_EQ(r.publisher().observerCount(), 2u);
    r.metricIs(1);
    EXPECT_EQ(a.seen.size(), 1u);
    EXPECT_EQ(b.seen.size(), 1u);
    r.publisher().observerDel(a);  // one unregistration removes it entirely
    r.metricIs(2);
    EXPECT_EQ(a.seen.size(), 1u);
    EXPECT_EQ(b.seen.size(), 2u);
}

TEST(PublisherTest, ObserverUnregisteringItselfInTheCallbackDoesNotDisturbTheOthers) {
    Router r;
    Recorder first;
    Recorder quitter;
    Recorder last;
    quitter.action = [&](const Poldo::Notification&) { r.publisher().observerDel(quitter); };
    r.publisher().observerIs(first);
    r.publisher().observerIs(quitter);
    r.publisher().observerIs(last);
    r.metricIs(1);
    EXPECT_EQ(first.seen.size(), 1u);
    EXPECT_EQ(quitter.seen.size(), 1u);
    EXPECT_EQ(last.seen.size(), 1u) << "the observer after the one that left must still hear the change";
    EXPECT_EQ(r.publisher().observerCount(), 2u);
    r.metricIs(2);
    EXPECT_EQ(first.seen.size(), 2u);
    EXPECT_EQ(quitter.seen.size(), 1u);
    EXPECT_EQ(last.seen.size(), 2u);
}

TEST(PublisherTest, ObserverUnregisteredByAnotherDuringThePublicationIsNotCalledAgain) {
    Router r;
    auto victim = std::make_unique<Recorder>();
    Recorder killer;
    Recorder last;
    killer.action = [&](const Poldo::Notification&) {
        if (victim) {
            r.publisher().observerDel(*victim);
            victim.reset();  // destroyed: calling it now would be a use after free
        }
    };
    r.publisher().observerIs(killer);
    r.publisher().observerIs(*victim);
    r.publisher().observerIs(last);
    r.metricIs(1);
    EXPECT_EQ(victim, nullptr);
    EXPECT_EQ(last.seen.size(), 1u);
    EXPECT_EQ(r.publisher().observerCount(), 2u);
    r.metricIs(2);
    EXPECT_EQ(killer.seen.size(), 2u);
    EXPECT_EQ(last.seen.size(), 2u);
}

TEST(PublisherTest, ObserverUnregisteringAnEarlierOneKeepsTheWalkInPlace) {
    Router r;
    Recorder a;
    Recorder b;
    Recorder c;
    Recorder d;
    c.action = [&](const Poldo::Notification&) {
        r.publisher().observerDel(a);
        r.publisher().observerDel(b);
    };
    for (Recorder* o : {&a, &b, &c, &d}) {
        r.publisher().observerIs(*o);
    }
    r.metricIs(1);
    EXPECT_EQ(a.seen.size(), 1u);
    EXPECT_EQ(b.seen.size(), 1u);
    EXPECT_EQ(c.seen.size(), 1u);
    EXPECT_EQ(d.seen.size(), 1u) << "removing earlier observers must not skip later ones";
    r.metricIs(2);
    EXPECT_EQ(a.seen.size(), 1u);
    EXPECT_EQ(b.seen.size(), 1u);
    EXPECT_EQ(c.seen.size(), 2u);
    EXPECT_EQ(d.seen.size(), 2u);
}

TEST(PublisherTest, ObserverRegisteredDuringAPublicationHearsOnlyTheNextOne) {
    Router r;
    Recorder recruiter;
    Recorder late;
    std::vector<std::unique_ptr<Recorder>> many;  // enough to force the observer list to reallocate
    recruiter.action = [&](const Poldo::Notification&) {
        r.publisher().observerIs(late);
        for (int i = 0; i < 40; ++i) {
            many.push_back(std::make_unique<Recorder>());
            r.publisher().observerIs(*many.back());
        }
        recruiter.action = nullptr;
    };
    r.publisher().observerIs(recruiter);
    r.metricIs(1);
    EXPECT_TRUE(late.seen.empty());
    for (const auto& m : many) {
        EXPECT_TRUE(m->seen.empty());
    }
    r.metricIs(2);
    ASSERT_EQ(late.seen.size(), 1u);
    EXPECT_EQ(late.seen[0].oldMetric, 1u);
    for (const auto& m : many) {
        EXPECT_EQ(m->seen.size(), 1u);
    }
    for (const auto& m : many) {
        r.publisher().observerDel(*m);
    }
}

TEST(PublisherTest, ObserverLeavingAndReturningInOneCallbackHearsTheNextChangeOnce) {
    Router r;
    Recorder fickle;
    Recorder other;
    fickle.action = [&](const Poldo::Notification&) {
        r.publisher().observerDel(fickle);
        r.publisher().observerIs(fickle);
        fickle.action = nullptr;
    };
    r.publisher().observerIs(fickle);
    r.publisher().observerIs(other);
    r.metricIs(1);
    EXPECT_EQ(fickle.seen.size(), 1u);
    EXPECT_EQ(other.seen.size(), 1u);
    EXPECT_EQ(r.publisher().observerCount(), 2u);
    r.metricIs(2);
    EXPECT_EQ(fickle.seen.size(), 2u);
    EXPECT_EQ(other.seen.size(), 2u);
}

TEST(PublisherTest, ObserverMayChangeTheEntityFromInsideTheCallback) {
    Router r;
    Recorder clamp;
    Recorder watcher;
    clamp.action = [&](const Poldo::Notification& n) {
        if (n.entity<Router>()->metricValue() > 100) {
            r.metricIs(100);  // nested publication
            r.publisher().observerDel(watcher);
        }
    };
    r.publisher().observerIs(clamp);
    r.publisher().observerIs(watcher);
    r.metricIs(500);
    EXPECT_EQ(r.metricValue(), 100u);
    // The clamp hears both changes; the watcher hears the nested one, then is gone
    // before the outer publication reaches it.
    ASSERT_EQ(clamp.seen.size(), 2u);
    EXPECT_EQ(clamp.seen[0].oldMetric, 0u);
    EXPECT_EQ(clamp.seen[1].oldMetric, 500u);
    ASSERT_EQ(watcher.seen.size(), 1u);
    EXPECT_EQ(watcher.seen[0].oldMetric, 500u);
    EXPECT_EQ(r.publisher().observerCount(), 1u);
    r.metricIs(7);
    EXPECT_EQ(clamp.seen.size(), 3u);
    EXPECT_EQ(watcher.seen.size(), 1u);
}

TEST(PublisherTest, FunctionObserverForwardsEveryNotification) {
    Router r;
    std::vector<std::uint32_t> olds;
    Poldo::FunctionObserver obs([&olds](const Poldo::Notification& n) {
        if (const std::uint32_t* o = n.oldValue<std::uint32_t>()) {
            olds.push_back(*o);
        }
    });
    r.publisher().observerIs(obs);
    r.metricIs(10);
    r.metricIs(10);  // no real change, nothing published
    r.metricIs(20);
    r.publisher().observerDel(obs);
    r.metricIs(30);
    EXPECT_EQ(olds, (std::vector<std::uint32_t>{0, 10}));
}

}  // namespace
