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

/// A key whose equality looks at the identifier only, so that keyIsEq can be seen to use the key
/// type's own operator==.
struct NeighborKey {
    std::uint32_t id;
    std::uint32_t cookie;
    friend bool operator==(const NeighborKey& a, const NeighborKey& b) noexcept { return a.id == b.id; }
};

/// An observed test entity. typeData() counts its calls: a test sees whether a notification was built.
class Router {
public:
    enum Attr : Kest::AttrId { metric = 130, neighbor = 131 };
    static inline int typeDataCalls = 0;
    static const Kest::TypeData& typeData() {
        ++typeDataCalls;
        static constexpr Kest::AttrData attrs[] = {
            {"metric", metric, Kest::AttrKind::scalar},
            {"neighbor", neighbor, Kest::AttrKind::hashCollection, 0x1234u},
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
    std::uint32_t metricValue() const { return metric_; }

private:
    Poldo::Publisher publisher_;
    std::uint32_t metric_ = 0;
};

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

TEST(PublisherTest, ANotificationCarriesEntityAttributeTypedKeyAndTypedOldValue) {
    Router r;
    std::vector<std::string> seen;
    Poldo::FunctionObserver obs([&](const Poldo::Notification& n) {
        EXPECT_EQ(n.entity<Router>(), &r);
        EXPECT_EQ(n.entity<NeighborKey>(), nullptr);
        EXPECT_EQ(n.entityType().name, "Test::Router");
        const std::uint32_t* oldMetric = n.oldValue<std::uint32_t>();
        const std::string* oldName = n.oldValue<std::string>();
        const NeighborKey* key = n.key<NeighborKey>();
        EXPECT_EQ(n.hasKey(), key != nullptr);
        EXPECT_EQ(n.key<std::uint32_t>(), nullptr) << "a key of another type reads as null";
        EXPECT_EQ(n.oldValue<std::int32_t>(), nullptr) << "an old value of another type reads as null";
        EXPECT_EQ(n.hasOldValue(), oldMetric != nullptr || oldName != nullptr);
        seen.push_back(
            std::to_string(n.attr()) + " " + std::string(n.attrName()) +
            (key ? " key " + std::to_string(key->id) : "") + (n.keyIsEq(NeighborKey{42, 777}) ? " eq" : "") +
            (oldMetric ? " old " + std::to_string(*oldMetric) : "") + (oldName ? " " + *oldName : "") +
            " now " + std::to_string(n.entity<Router>()->metricValue()));
    });
    r.metricIs(5);
    r.publisher().observerIs(obs);
    r.metricIs(9);
    const std::string oldName = "old neighbor";
    const NeighborKey k42{42, 1};
    const NeighborKey k43{43, 1};
    r.publisher().publish(r, Router::neighbor, &k42, static_cast<const std::string*>(nullptr));
    r.publisher().publish(r, Router::neighbor, &k43, &oldName);
    // An attribute the type does not know has an empty name.
    r.publisher().publish<Router, void, int>(r, 199, nullptr, nullptr);
    r.publisher().observerDel(obs);
    r.metricIs(10);
    EXPECT_EQ(seen, (std::vector<std::string>{"130 metric old 5 now 9", "131 neighbor key 42 eq now 9",
                                              "131 neighbor key 43 old neighbor now 9", "199  now 9"}));
}

TEST(PublisherTest, TheInitialStateBuildsNoNotificationAndEndsForGoodAtTheFirstRegistration) {
    Router r;
    Recorder rec;
    Recorder other;
    Router::typeDataCalls = 0;
    r.publisher().observerDel(rec);  // unknown observer: ignored, still initial
    EXPECT_TRUE(r.publisher().initialState());
    r.metricIs(1);
    EXPECT_EQ(Router::typeDataCalls, 0) << "publishing in the initial state built a notification";
    r.publisher().observerIs(rec);
    r.publisher().observerIs(other);
    r.publisher().observerIs(rec);  // a second registration delivers once, one unregistration removes it
    EXPECT_EQ(r.publisher().observerCount(), 2u);
    EXPECT_FALSE(r.publisher().initialState());
    r.metricIs(2);
    EXPECT_EQ(Router::typeDataCalls, 1);
    r.publisher().observerDel(rec);
    r.publisher().observerDel(other);
    EXPECT_FALSE(r.publisher().initialState());
    r.metricIs(3);
    EXPECT_EQ(rec.heard(), 1u);
    EXPECT_EQ(other.heard(), 1u);
}

// Observers that change the observer list, or the entity, from inside a callback. Four observers
// registered in order; each scenario gives some of them an action, publishes 1 then 2 and reads who
// heard which old values.
TEST(PublisherTest, ObserversMayRegisterUnregisterAndChangeTheEntityFromInsideACallback) {
    using Olds = std::vector<std::optional<std::uint32_t>>;
    struct Scenario {
        const char* what;
        std::function<void(Router&, Recorder*, std::unique_ptr<Recorder>&)> arm;
        std::vector<Olds> heard;
        std::size_t observersAfter;
    };
    const Scenario scenarios[] = {
        {"an observer leaving itself does not disturb the others",
         [](Router& r, Recorder* o, auto&) {
             o[1].action = [&r, o](auto&) { r.publisher().observerDel(o[1]); };
         },
         {{0, 1}, {0}, {0, 1}, {0, 1}},
         3},
        {"removing earlier observers skips no later one",
         [](Router& r, Recorder* o, auto&) {
             o[2].action = [&r, o](auto&) {
                 r.publisher().observerDel(o[0]);
                 r.publisher().observerDel(o[1]);
             };
         },
         {{0}, {0}, {0, 1}, {0, 1}},
         2},
        {"an observer removed and destroyed by another is not called again",
         [](Router& r, Recorder* o, std::unique_ptr<Recorder>& victim) {
             r.publisher().observerDel(o[3]);
             victim = std::make_unique<Recorder>();
             r.publisher().observerIs(*victim);
             r.publisher().observerIs(o[3]);
             o[0].action = [&r, &victim](auto&) {
                 if (victim) {
                     r.publisher().observerDel(*victim);
                     victim.reset();  // calling it now would be a use after free
                 }
             };
         },
         {{0, 1}, {0, 1}, {0, 1}, {0, 1}},
         4},
        {"an observer leaving and returning in one callback hears the next change once",
         [](Router& r, Recorder* o, auto&) {
             o[0].action = [&r, o](auto&) {
                 r.publisher().observerDel(o[0]);
                 r.publisher().observerIs(o[0]);
                 o[0].action = nullptr;
             };
         },
         {{0, 1}, {0, 1}, {0, 1}, {0, 1}},
         4},
        {"a nested publication reaches everyone first; an observer removed in it misses the outer one",
         [](Router& r, Recorder* o, auto&) {
             o[0].action = [&r, o](const Poldo::Notification& n) {
                 if (n.entity<Router>()->metricValue() == 1) {
                     r.metricIs(100);
                     r.publisher().observerDel(o[3]);
                 }
             };
         },
         {{0, 1, 100}, {1, 0, 100}, {1, 0, 100}, {1}},
         3},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.what);
        Router r;
        Recorder obs[4];
        std::unique_ptr<Recorder> victim;
        for (auto& o : obs) {
            r.publisher().observerIs(o);
        }
        s.arm(r, obs, victim);
        r.metricIs(1);
        r.metricIs(2);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(obs[i].oldMetrics, s.heard[static_cast<std::size_t>(i)]) << "observer " << i;
        }
        EXPECT_EQ(r.publisher().observerCount(), s.observersAfter);
    }
}

// Enough observers registered during a publication to make the list reallocate: they hear only the next.
TEST(PublisherTest, ObserversRegisteredDuringAPublicationHearOnlyTheNextOne) {
    Router r;
    Recorder first;
    std::vector<std::unique_ptr<Recorder>> late;
    r.publisher().observerIs(first);
    first.action = [&](const Poldo::Notification&) {
        for (int i = 0; i < 40; ++i) {
            late.push_back(std::make_unique<Recorder>());
            r.publisher().observerIs(*late.back());
        }
        first.action = nullptr;
    };
    r.metricIs(1);
    r.metricIs(2);
    EXPECT_EQ(first.heard(), 2u);
    for (const auto& m : late) {
        EXPECT_EQ(m->oldMetrics, (std::vector<std::optional<std::uint32_t>>{1u}));
        r.publisher().observerDel(*m);
    }
}

}  // namespace
