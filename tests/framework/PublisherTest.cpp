// Change publication: Poldo::Publisher, Poldo::Notification and observers.
#include "IgpCommon/framework/Publisher.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "IgpCommon/framework/TypeData.h"

namespace {

/// Equality looks at the identifier only: keyIsEq must use the key type's own operator==.
struct NeighborKey {
    std::uint32_t id;
    std::uint32_t cookie;
    friend bool operator==(const NeighborKey& a, const NeighborKey& b) noexcept { return a.id == b.id; }
};

/// An observed entity. typeData() counts its calls: a test sees whether a notification was built.
struct Router {
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
    void metricIs(std::uint32_t m) {
        const std::uint32_t old = std::exchange(value, m);
        pub.publish(*this, metric, old);
    }
    Poldo::Publisher pub;
    std::uint32_t value = 0;
};

using Olds = std::vector<std::optional<std::uint32_t>>;

/// Records the old metrics it hears; `once` runs after the first.
class Recorder : public Poldo::Observer {
public:
    void onChange(const Poldo::Notification& n) override {
        const std::uint32_t* o = n.oldValue<std::uint32_t>();
        heard.push_back(o != nullptr ? std::optional<std::uint32_t>(*o) : std::nullopt);
        if (once) {
            const auto f = std::move(once);
            once = nullptr;
            f();
        }
    }
    Olds heard;
    std::function<void()> once;
};

// Before its first observer a publisher builds no notification (typeData() is not called). A key
// or old value read as another type than published reads as null.
TEST(PublisherTest, ANotificationCarriesEntityAttributeTypedKeyAndTypedOldValueOnceThereIsAnObserver) {
    Router r;
    std::vector<std::string> seen;
    Poldo::FunctionObserver obs([&](const Poldo::Notification& n) {
        EXPECT_TRUE(n.entity<Router>() == &r && n.entity<NeighborKey>() == nullptr);
        EXPECT_TRUE(n.key<std::uint32_t>() == nullptr && n.oldValue<std::int32_t>() == nullptr);
        const std::uint32_t* oldMetric = n.oldValue<std::uint32_t>();
        const std::string* oldName = n.oldValue<std::string>();
        const NeighborKey* key = n.key<NeighborKey>();
        EXPECT_EQ(n.hasKey(), key != nullptr);
        EXPECT_EQ(n.hasOldValue(), oldMetric != nullptr || oldName != nullptr);
        EXPECT_EQ(n.entityType().name, "Test::Router");
        std::string line = std::to_string(n.attr()).append(" ").append(n.attrName());
        line += key ? " key " + std::to_string(key->id) : "";
        line += n.keyIsEq(NeighborKey{42, 777}) ? " eq" : "";
        line += oldMetric ? " old " + std::to_string(*oldMetric) : "";
        seen.push_back(line + (oldName ? " " + *oldName : ""));
    });
    Router::typeDataCalls = 0;
    r.pub.observerDel(obs);  // unknown observer: ignored
    r.metricIs(5);
    EXPECT_TRUE(Router::typeDataCalls == 0 && r.pub.initialState());
    r.pub.observerIs(obs);
    r.pub.observerIs(obs);  // a second registration delivers once, one unregistration removes it
    r.metricIs(9);
    const std::string oldName = "old neighbor";
    const NeighborKey k42{42, 1};
    const NeighborKey k43{43, 1};
    r.pub.publish(r, Router::neighbor, &k42, static_cast<const std::string*>(nullptr));
    r.pub.publish(r, Router::neighbor, &k43, &oldName);
    r.pub.publish<Router, void, int>(r, 199, nullptr, nullptr);  // unknown: an empty name
    r.pub.observerDel(obs);
    r.metricIs(10);
    EXPECT_FALSE(r.pub.initialState());
    EXPECT_EQ(seen, (std::vector<std::string>{"130 metric old 5", "131 neighbor key 42 eq",
                                              "131 neighbor key 43 old neighbor", "199 "}));
}

// Observers that change the observer list, or the entity, from inside a callback. Five observers
// registered in order; on its first hearing an observer acts: 'd'eletes, 'a'dds or 'k'ills (deletes
// and destroys) observer arg, 'p'ublishes 100, or registers 'l'ate observers. Then 1 and 2 are
// published and who heard which old values is read; late observers must hear only the second.
TEST(PublisherTest, ObserversMayRegisterUnregisterAndChangeTheEntityFromInsideACallback) {
    using Act = std::tuple<int, char, int>;  // by, op, arg
    struct Scenario {
        const char* what;
        std::vector<Act> acts;
        std::vector<Olds> heard;  // nothing for a destroyed observer
        std::uint32_t observersAfter;
    };
    const Scenario scenarios[] = {
        {"leaves itself", {{1, 'd', 1}}, {{0, 1}, {0}, {0, 1}, {0, 1}, {0, 1}}, 4},
        {"removes earlier ones", {{2, 'd', 0}, {2, 'd', 1}}, {{0}, {0}, {0, 1}, {0, 1}, {0, 1}}, 3},
        {"removes and destroys a later one", {{0, 'k', 3}}, {{0, 1}, {0, 1}, {0, 1}, {}, {0, 1}}, 4},
        {"leaves and returns", {{0, 'd', 0}, {0, 'a', 0}}, {{0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}}, 5},
        {"publishes, then removes one",
         {{0, 'p', 0}, {0, 'd', 4}},
         {{0, 1, 100}, {1, 0, 100}, {1, 0, 100}, {1, 0, 100}, {1}},
         4},
        {"registers enough to move the list", {{4, 'l', 40}}, {{0, 1}, {0, 1}, {0, 1}, {0, 1}, {0, 1}}, 45},
    };
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.what);
        Router r;
        std::vector<std::unique_ptr<Recorder>> obs;
        for (int i = 0; i < 5; ++i) {
            obs.push_back(std::make_unique<Recorder>());
            r.pub.observerIs(*obs.back());
        }
        for (const Act& act : s.acts) {
            const int actor = std::get<0>(act);
            obs[static_cast<std::size_t>(actor)]->once = [&r, &obs, &s, actor] {
                for (const auto& [by, op, arg] : s.acts) {
                    for (int i = 0; by == actor && op == 'l' && i < arg; ++i) {
                        obs.push_back(std::make_unique<Recorder>());
                        r.pub.observerIs(*obs.back());
                    }
                    auto& target = obs[static_cast<std::size_t>(op == 'l' ? 0 : arg)];
                    if (by == actor && (op == 'd' || op == 'k')) {
                        r.pub.observerDel(*target);
                    } else if (by == actor && op == 'a') {
                        r.pub.observerIs(*target);
                    } else if (by == actor && op == 'p') {
                        r.metricIs(100);
                    }
                    if (by == actor && op == 'k') {
                        target.reset();  // calling it now would be a use after free
                    }
                }
            };
        }
        r.metricIs(1);
        r.metricIs(2);
        EXPECT_EQ(r.pub.observerCount(), s.observersAfter);
        for (std::size_t i = 0; i < obs.size(); ++i) {
            EXPECT_EQ(obs[i] ? obs[i]->heard : Olds{}, i < 5 ? s.heard[i] : Olds{1u}) << "observer " << i;
        }
    }
}

}  // namespace
