// Checks over every described attribute of an entity, so that a new attribute is covered once it is
// described: its setter publishes exactly once, an equal write publishes nothing, its value shows
// in the dump, and fragments unite by its rule. To cover another entity, give it a Sample.
#include <gtest/gtest.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

#include "IgpCommon/Neighbor.h"
#include "IgpCommon/Node.h"
#include "IgpCommon/Prefix.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)

template <class E>
struct Sample;
template <>
struct Sample<Neighbor> {
    static Poldo::Ptr<Neighbor> full() { return testsupport::fullNeighbor(); }
    /// Carries nothing: the igpMetric unites by the least, so it starts at the most.
    static Poldo::Ptr<Neighbor> bare() {
        auto n = neighborFactory(testsupport::nbrKey(1));
        n->igpMetricIs(std::numeric_limits<std::uint32_t>::max());
        return n;
    }
};
template <>
struct Sample<Prefix> {
    static Poldo::Ptr<Prefix> full() { return testsupport::fullPrefix(); }
    static Poldo::Ptr<Prefix> bare() { return prefixFactory(testsupport::pfxKey("10.0.0.0/8")); }
};

/// One of two node collections that differ in content.
template <class C>
Poldo::Ptr<C> variant(std::uint8_t k) {
    if constexpr (std::is_same_v<C, IsisAreaIdCol>) {
        auto c = isisAreaIdColFactory();
        c->areaIdIs(testsupport::parse<Routing::Isis::AreaId>(k == 1 ? "49.0001" : "49.0002"), false);
        return c;
    } else if constexpr (std::is_same_v<C, SrCapabilities>) {
        auto c = srCapabilitiesFactory();
        c->sidLabelRangeIs(SrSidRangeIndex(0), SrSidRange(100u * k, Lumo::MplsLabel(16000)));
        c->numRangesIs(1);
        return c;
    } else if constexpr (std::is_same_v<C, IgpMsdCol>) {
        auto c = igpMsdColFactory();
        c->msdIs(k, IgpMsd(1, 8));
        return c;
    } else if constexpr (std::is_same_v<C, IgpFlexAlgoDefinitionCol>) {
        auto c = igpFlexAlgoDefinitionColFactory();
        IgpFlexAlgoDefinition d;
        d.flexAlgoIs(static_cast<std::uint8_t>(127 + k));
        c->fadIs(d.flexAlgo(), d);
        return c;
    } else {
        auto c = igpMultiTopologyIdColFactory();
        c->mtIdValueIs(IgpMultiTopologyId(k));
        return c;
    }
}
template <>
struct Sample<Node> {
    /// Flags clear: the first fragment alone decides them, so a bare union keeps its own.
    static Poldo::Ptr<Node> full() {
        auto n = bare();
        n->hostNameIs("r1");
        n->ipv4RouterIdIs(testsupport::v4("1.1.1.1"));
        n->ipv6RouterIdIs(testsupport::v6("2001:db8::1"));
        n->isisAreaIdColIs(variant<IsisAreaIdCol>(1));
        n->srCapabilitiesIs(variant<SrCapabilities>(1));
        n->srlbIs(variant<SrCapabilities>(1));
        n->msdColIs(variant<IgpMsdCol>(1));
        n->fadColIs(variant<IgpFlexAlgoDefinitionCol>(1));
        n->mtIdColIs(variant<IgpMultiTopologyIdCol>(1));
        return n;
    }
    static Poldo::Ptr<Node> bare() { return nodeFactory(testsupport::nodeId(1)); }
};

// Another value of each type an attribute holds: an attribute of a new type does not compile here
// until it has one.
std::uint32_t another(std::uint32_t v) {
    return v + 1;
}
float another(float v) {
    return v * 2.0f + 1.0f;
}
bool another(bool v) {
    return !v;
}
template <class F>
requires requires {
    F::validMask;
}
F another(F v) {
    return F(static_cast<unsigned char>(v.value() ^ 1u));
}
LinkDelay another(LinkDelay v) {
    return LinkDelay(v.delay() + 1, !v.anomalous());
}
std::string another(const std::string& v) {
    return v + "x";
}
Lumo::IpAddr another(Lumo::IpAddr v) {
    return Lumo::IpAddr(v.value() + 1);
}
Lumo::Ip6Addr another(Lumo::Ip6Addr v) {
    auto b = v.bytes();
    ++b[15];
    return Lumo::Ip6Addr::fromBytes(b.data());
}
template <class C>
requires requires(const C& c) {
    kestSameContent(c, c);
}
Poldo::Ptr<C> another(const Poldo::Ptr<C>& v) {
    auto first = variant<C>(1);
    return v && kestSameContent(*v, *first) ? variant<C>(2) : first;
}
PrefixSid another(PrefixSid v) {
    return PrefixSid(v.flags(), v.value() + 1, v.algorithm(), true);
}
Poldo::Ptr<SidLabelBinding> another(const Poldo::Ptr<SidLabelBinding>& v) {
    return testsupport::binding(static_cast<std::uint16_t>((v ? v->range() : 0) + 1));
}
// A member the full sample lacks (for an array, an index holding the default).
BwIndex newKey(BwIndex) {
    return BwIndex(7);
}
AdminGroupIndex newKey(AdminGroupIndex) {
    return AdminGroupIndex(63);
}
std::uint32_t newKey(std::uint32_t) {
    return 8;
}
std::uint8_t newKey(std::uint8_t) {
    return 200;
}
AdjacencySid newKey(AdjacencySid) {
    return AdjacencySid(0x30, 16009, 0);
}
LanAdjacencySid newKey(LanAdjacencySid) {
    return LanAdjacencySid(0x30, 16009, 0, Routing::Isis::SystemId({0, 0, 0, 0, 0, 9}));
}

/// Changes `d`'s attribute of `e` once: a scalar to another value, a new member into a collection.
template <class D, class E>
void changeOne(const D& d, E& e) {
    if constexpr (Kest::ScalarDesc<D>) {
        d.set(e, another(d.get(e)));
    } else {
        using K = Kest::MemberKey<D>;
        using V = Kest::MemberValue<D>;
        if constexpr (std::is_same_v<K, V>) {
            Kest::putMember(d, e, newKey(K()), newKey(K()));
        } else {
            Kest::putMember(d, e, newKey(K()), another(V()));
        }
    }
}

/// Calls `f(d)` for every description with a setter.
template <class E, class F>
void forEachWritable(F&& f) {
    Kest::forEachAttr<E>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        if constexpr (Kest::MembersDesc<D>) {
            f(d);
        } else if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                f(d);
            }
        }
    });
}

template <class E>
class DescribedAttributes : public ::testing::Test {};
using Described = ::testing::Types<Neighbor, Prefix, Node>;
TYPED_TEST_SUITE(DescribedAttributes, Described);

TYPED_TEST(DescribedAttributes, EverySetterPublishesOnceWithItsIdentifierAndOldValueAndAnEqualWriteNothing) {
    using E = TypeParam;
    forEachWritable<E>([](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        SCOPED_TRACE(d.name);
        auto e = Sample<E>::full();
        IgpTest::RecordingObserver<> rec(e->publisher());
        if constexpr (Kest::ScalarDesc<D>) {
            using V = typename D::Value;
            rec.onRecord([](const Poldo::Notification& n, IgpTest::Record& r) {
                if (const V* v = n.oldValue<V>()) {
                    r.oldValue = *v;
                }
            });
            const V old = d.get(*e);
            d.set(*e, old);
            EXPECT_TRUE(rec.empty());
            changeOne(d, *e);
            ASSERT_EQ(rec.size(), 1u);
            EXPECT_FALSE(rec[0].hasKey);
            ASSERT_NE(rec[0].template oldAs<V>(), nullptr);
            EXPECT_TRUE(Kest::sameValue(*rec[0].template oldAs<V>(), old));
            EXPECT_TRUE(Kest::sameValue(d.get(*e), another(old)));
        } else {
            using K = Kest::MemberKey<D>;
            rec.onRecord([](const Poldo::Notification& n, IgpTest::Record& r) {
                if (const K* k = n.key<K>()) {
                    r.key = *k;
                }
            });
            const auto before = Kest::findMember(d, *e, newKey(K()));
            changeOne(d, *e);
            changeOne(d, *e);
            EXPECT_TRUE(Kest::findMember(d, *e, newKey(K())).has_value());
            if constexpr (!std::is_same_v<decltype(d.holder), std::nullptr_t>) {
                EXPECT_TRUE(rec.empty()) << "a collection behind a pointer publishes on its own object";
                return;
            }
            ASSERT_EQ(rec.size(), 1u);
            ASSERT_NE(rec[0].template keyAs<K>(), nullptr);
            EXPECT_EQ(*rec[0].template keyAs<K>(), newKey(K()));
            EXPECT_EQ(rec[0].hasOldValue, before.has_value());  // an array's slot always holds one
        }
        EXPECT_EQ(rec[0].attr, d.id);
        EXPECT_EQ(rec[0].attrName, d.name);
    });
}

TYPED_TEST(DescribedAttributes, EveryAttributeShowsInTheDump) {
    using E = TypeParam;
    forEachWritable<E>([](const auto& d) {
        SCOPED_TRACE(d.name);
        auto e = Sample<E>::full();
        const std::string before = testsupport::formatted(*e);
        changeOne(d, *e);
        EXPECT_NE(testsupport::formatted(*e), before);
    });
}

/// What a scalar of `first` should hold once united with `later`.
template <class D, class E>
typename D::Value unitedScalar(const D& d, const E& first, const E& later) {
    using V = typename D::Value;
    if constexpr (std::totally_ordered<V>) {
        if (d.unite == Kest::Unite::least) {
            return std::min(d.get(first), d.get(later));
        }
    }
    if constexpr (requires { V::validMask; }) {
        if (d.unite == Kest::Unite::flagsOfAll) {
            return V(static_cast<unsigned char>(d.get(first).value() | d.get(later).value()));
        }
    }
    return d.get(first);
}

TYPED_TEST(DescribedAttributes, FragmentsUniteByEachAttributesRule) {
    using E = TypeParam;
    // `into` carries everything; `from` differs in every attribute.
    const auto into = Sample<E>::full();
    const auto from = Sample<E>::full();
    forEachWritable<E>([&](const auto& d) { changeOne(d, *from); });
    const auto before = Sample<E>::full();
    Kest::uniteAttrs(*into, *from);
    forEachWritable<E>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        SCOPED_TRACE(d.name);
        if constexpr (Kest::ScalarDesc<D>) {
            // A rule of its own gathers from every fragment: `from`'s other member joins.
            EXPECT_TRUE(d.unite == Kest::Unite::ownRule
                            ? !Kest::sameValue(d.get(*into), d.get(*before))
                            : Kest::sameValue(d.get(*into), unitedScalar(d, *before, *from)));
        } else {
            const auto k = newKey(Kest::MemberKey<D>());
            if (d.unite == Kest::Unite::membersOfAll) {
                EXPECT_TRUE(Kest::findMember(d, *into, k).has_value());
            } else {
                EXPECT_EQ(Kest::findMember(d, *into, k), Kest::findMember(d, *before, k));
            }
        }
    });
    // A fragment that carries nothing takes each attribute from the first that does.
    const auto bare = Sample<E>::bare();
    Kest::uniteAttrs(*bare, *before);
    EXPECT_EQ(Kest::firstDifference(*bare, *before), "");
}

// A neighbor's merge is attribute by attribute: one difference, one notification.
TEST(NeighborUpdateAttr, FromANeighborDifferingInOneAttributePublishesExactlyThatChange) {
    forEachWritable<Neighbor>([](const auto& d) {
        SCOPED_TRACE(d.name);
        auto mine = Sample<Neighbor>::full();
        auto other = Sample<Neighbor>::full();
        changeOne(d, *other);
        IgpTest::RecordingObserver<> rec(mine->publisher());
        mine->updateAttr(other);
        ASSERT_EQ(rec.size(), 1u);
        EXPECT_EQ(rec[0].attr, d.id);
        EXPECT_EQ(Kest::firstDifference(*mine, *other), "");
    });
}

}  // namespace
