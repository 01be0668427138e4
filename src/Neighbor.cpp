#include "IgpCommon/Neighbor.h"

#include "Define.h"

namespace Routing::IgpCommon {

LinkDelay::LinkDelay(Kest::CharRange& r) : LinkDelay(Kest::readValue<LinkDelay>(r)) {}

std::ostream& operator<<(std::ostream& os, const LinkDelay& d) {
    return Kest::writeValue(os, d);
}

Poldo::Ptr<Neighbor> Neighbor::NeighborIs(const NeighborKey& key) {
    return Poldo::Ptr<Neighbor>(new Neighbor(key), Poldo::adopt);
}

Poldo::Ptr<Neighbor> neighborFactory(const NeighborKey& key) {
    return Neighbor::NeighborIs(key);
}

void Neighbor::unreservedBwIs(BwIndex i, float v) {
    const float old = unreservedBw_[i];
    if (!(old != v)) {
        return;
    }
    unreservedBw_.set(i, v);
    publishMember(Attr::unreservedBw, i, &old);
}

void Neighbor::unreservedBwDel(BwIndex i) {
    const float old = unreservedBw_[i];
    if (old != 0.0f) {
        unreservedBw_.set(i, 0.0f);
        publishMember(Attr::unreservedBw, i, &old);
    }
}

void Neighbor::unreservedBwDelAll() {
    for (std::size_t i = 0; i < UnreservedBwArray::size(); ++i) {
        unreservedBwDel(BwIndex(static_cast<std::uint8_t>(i)));
    }
}

std::uint32_t Neighbor::extAdminGroup(AdminGroupIndex i) const noexcept {
    const auto* e = extAdminGroup_.find(i);
    return e ? e->value : 0;
}

void Neighbor::extAdminGroupIs(AdminGroupIndex i, std::uint32_t word) {
    const auto it = extAdminGroup_.findIter(i);
    if (it == extAdminGroup_.end()) {
        extAdminGroup_.insert({i, word});
        publishMember<AdminGroupIndex, std::uint32_t>(Attr::extAdminGroup, i, nullptr);
        return;
    }
    if (it->value == word) {
        return;
    }
    const std::uint32_t old = extAdminGroup_.replace(it, {i, word}).value;
    publishMember(Attr::extAdminGroup, i, &old);
}

void Neighbor::extAdminGroupDel(AdminGroupIndex i) {
    ExtAdminGroupMap::member_type removed{};
    if (extAdminGroup_.erase(i, &removed)) {
        publishMember(Attr::extAdminGroup, i, &removed.value);
    }
}

void Neighbor::extAdminGroupDelAll() {
    if (publisher().initialState()) {
        extAdminGroup_.clear();
        return;
    }
    for (auto it = extAdminGroup_.begin(); it != extAdminGroup_.end(); ++it) {
        extAdminGroupDel(it->key);
    }
}

void Neighbor::updateAttr(const Poldo::Ptr<const Neighbor>& other) {
    const Neighbor& o = *other;
    attrsPresentIs(o.attrsPresent_);
    adminGroupIs(o.adminGroup_);
    maxLinkBwIs(o.maxLinkBw_);
    maxReserveLinkBwIs(o.maxReserveLinkBw_);
    igpMetricIs(o.igpMetric_);
    teDefMetricIs(o.teDefMetric_);
    bool sameBw = true;
    for (std::size_t i = 0; i < UnreservedBwArray::size(); ++i) {
        sameBw &= unreservedBw_.slot(i) == o.unreservedBw_.slot(i);
    }
    // A NaN is never equal: such an array goes the long way and is published.
    if (!sameBw) {
        for (std::size_t i = 0; i < UnreservedBwArray::size(); ++i) {
            unreservedBwIs(BwIndex(static_cast<std::uint8_t>(i)), o.unreservedBw_.slot(i));
        }
    }
    // Equal maps iterate alike: an unchanged link is seen in one walk, without hashing.
    if (!Kest::sameMembers(extAdminGroup_, o.extAdminGroup_)) {
        for (auto it = o.extAdminGroup_.begin(); it != o.extAdminGroup_.end(); ++it) {
            extAdminGroupIs(it->key, it->value);
        }
        for (auto it = extAdminGroup_.begin(); it != extAdminGroup_.end(); ++it) {
            if (!o.extAdminGroup_.contains(it->key)) {
                extAdminGroupDel(it->key);
            }
        }
    }
    membersSync(Attr::srlgValues, srlgValues_, o.srlgValues_);
    membersSync(Attr::adjSid, adjSid_, o.adjSid_);
    membersSync(Attr::lanAdjSid, lanAdjSid_, o.lanAdjSid_);
    linkDelayIs(o.linkDelay_);
}

namespace {

template <class Set>
void putAddresses(std::ostream& os, const Set& set) {
    for (auto it = set.uncheckedBegin(); it != set.uncheckedEnd(); ++it) {
        os << *it << ' ';
    }
}

void putSidHead(std::ostream& os, const AdjacencySid& s) {
    os << '{' << s.value() << ", flags=0x" << std::hex << unsigned{s.flags()} << std::dec
       << ", wt=" << unsigned{s.weight()};
}

}  // namespace

std::ostream& Neighbor::formatContent(std::ostream& os) const {
    os << "          ngb=" << key_.nodeId().toStrep() << ", localIpv4Addr=[ ";
    putAddresses(os, key_.localIpv4Addr());
    os << "], localIpv6Addr=[ ";
    putAddresses(os, key_.localIpv6Addr());
    os << "], remoteIpv4Addr=[ ";
    putAddresses(os, key_.remoteIpv4Addr());
    os << "], remoteIpv6Addr=[ ";
    putAddresses(os, key_.remoteIpv6Addr());
    os << "]" << '\n' << std::flush;

    os << "                    igpMetric=" << igpMetric_;
    if (attrsPresent_.adminGroup()) {
        os << ", adminGroup=" << adminGroup_;
    }
    if (attrsPresent_.maxLinkBw()) {
        os << ", maxLinkBw=" << static_cast<double>(maxLinkBw_);
    }
    if (attrsPresent_.maxReserveLinkBw()) {
        os << ", maxReserveLinkBw=" << static_cast<double>(maxReserveLinkBw_);
    }
    if (attrsPresent_.teDefMetric()) {
        os << ", teDefMetric=" << teDefMetric_;
    }
    if (attrsPresent_.unreservedBw()) {
        os << ", unreservedBw=[";
        for (std::size_t i = 0; i < UnreservedBwArray::size(); ++i) {
            os << (i ? ", " : "") << static_cast<double>(unreservedBw_.slot(i));
        }
        os << "]";
    }
    if (attrsPresent_.extAdminGroup()) {
        os << ", extAdminGroup=[";
        for (std::uint8_t i = 0; i <= AdminGroupIndex::max; ++i) {
            os << (i ? ", " : "") << extAdminGroup(AdminGroupIndex(i));
        }
        os << "]";
    }
    if (linkDelay_.present()) {
        os << ", linkDelay=" << linkDelay_.delay() << (linkDelay_.anomalous() ? " (anomalous)" : "");
    }
    if (!srlgValues_.empty()) {
        os << ", srlg=[";
        const char* sep = "";
        for (auto it = srlgValues_.uncheckedBegin(); it != srlgValues_.uncheckedEnd(); ++it) {
            os << sep << *it;
            sep = ", ";
        }
        os << "]";
    }
    if (!adjSid_.empty()) {
        os << ", adjSid=[";
        const char* sep = "";
        for (auto it = adjSid_.uncheckedBegin(); it != adjSid_.uncheckedEnd(); ++it) {
            os << sep;
            putSidHead(os, *it);
            os << '}';
            sep = ", ";
        }
        os << "]";
    }
    if (!lanAdjSid_.empty()) {
        os << ", lanAdjSid=[";
        const char* sep = "";
        for (auto it = lanAdjSid_.uncheckedBegin(); it != lanAdjSid_.uncheckedEnd(); ++it) {
            os << sep;
            putSidHead(os, *it);
            os << ", sysID=" << it->systemId() << '}';
            sep = ", ";
        }
        os << "]";
    }
    return os << "\n";
}

IGP_DEFINE_DESCRIBED_ENTITY(Neighbor)

}  // namespace Routing::IgpCommon
