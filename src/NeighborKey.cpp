#include "IgpCommon/NeighborKey.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "Define.h"

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

namespace {

template <class Set>
std::strong_ordering compareSets(const Set& a, const Set& b) noexcept {
    if (a.size() != b.size()) {
        return a.size() < b.size() ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    for (auto i = a.uncheckedBegin(), j = b.uncheckedBegin(); i != a.uncheckedEnd(); ++i, ++j) {
        if (*i < *j) {
            return std::strong_ordering::less;
        }
        if (*j < *i) {
            return std::strong_ordering::greater;
        }
    }
    return std::strong_ordering::equal;
}

template <class Set>
void mixMembers(Kest::WordHash& h, const Set& set) noexcept {
    set.forEachUnchecked([&h](const typename Set::key_type& a) noexcept {
        if constexpr (std::is_same_v<typename Set::key_type, Lumo::IpAddr>) {
            h.word(a.value());
        } else {
            h.bytes16(a.bytes().data());
        }
    });
}

template <class Set>
void addAll(Set& into, const Set& from) {
    for (auto it = from.uncheckedBegin(); it != from.uncheckedEnd(); ++it) {
        into.insert(*it);
    }
}

template <class Mine, class Theirs>
bool anyIn(const Mine& mine, const Theirs& theirs) noexcept {
    for (auto it = mine.uncheckedBegin(); it != mine.uncheckedEnd(); ++it) {
        if (theirs.contains(*it)) {
            return true;
        }
    }
    return false;
}

template <class Set>
void putFirst(Poldo::OStringStream& os, const char* tag, const Set& set) {
    if (!set.empty()) {
        os << tag << *set.uncheckedBegin();
    }
}

}  // namespace

NeighborKey::NeighborKey(Kest::CharRange&) : NeighborKey() {
    Kest::noStringConstructor("NeighborKey");
}

void NeighborKey::copyFrom(const NeighborKey& other) & {
    mtId_ = other.mtId_;
    nodeId_ = other.nodeId_;
    addAll(remoteIpv4Addr_, other.remoteIpv4Addr_);
    addAll(remoteIpv6Addr_, other.remoteIpv6Addr_);
    addAll(localIpv4Addr_, other.localIpv4Addr_);
    addAll(localIpv6Addr_, other.localIpv6Addr_);
}

bool NeighborKey::addressesEmpty() const noexcept {
    return remoteIpv4Addr_.empty() && remoteIpv6Addr_.empty() && localIpv4Addr_.empty() &&
           localIpv6Addr_.empty();
}

bool NeighborKey::twoWayCheckAddrCmp(const NeighborKey& other) const noexcept {
    if (mtId_ != other.mtId_) {
        return false;
    }
    const bool otherHasNoLocal = other.localIpv4Addr_.empty() && other.localIpv6Addr_.empty();
    if (addressesEmpty() && otherHasNoLocal) {
        return other.remoteIpv4Addr_.empty() && other.remoteIpv6Addr_.empty();
    }
    if (!localIpv4Addr_.empty() && !other.remoteIpv4Addr_.empty() &&
        anyIn(localIpv4Addr_, other.remoteIpv4Addr_)) {
        return true;
    }
    if (!localIpv6Addr_.empty() && !other.remoteIpv6Addr_.empty() &&
        anyIn(localIpv6Addr_, other.remoteIpv6Addr_)) {
        return true;
    }
    // Nothing matched: accept only a side without local addresses facing a
    // side with local addresses of exactly one family.
    const auto families = [](const NeighborKey& k) {
        return (k.localIpv4Addr_.empty() ? 0 : 1) + (k.localIpv6Addr_.empty() ? 0 : 1);
    };
    const int mine = families(*this);
    const int theirs = families(other);
    return (mine == 0 && theirs == 1) || (theirs == 0 && mine == 1);
}

std::uint32_t NeighborKey::hash(std::uint32_t seed) const noexcept {
    // Every byte of the key reaches the seeded hash itself (a digest made
    // first, unkeyed or with a known seed, would let a sender aim collisions
    // that hold under every seed), and the set sizes come first, so that an
    // address cannot pass from one set to the next unnoticed. Sizes below 255,
    // the norm, share one word; a word of all ones announces four full sizes.
    // Every part fills whole words up to the node identifier, so the words go
    // to the mixer as they are: the same hash as streaming the same bytes.
    const std::uint32_t sizes[] = {remoteIpv4Addr_.size(), remoteIpv6Addr_.size(), localIpv4Addr_.size(),
                                   localIpv6Addr_.size()};
    Kest::WordHash h(seed);
    if (std::all_of(std::begin(sizes), std::end(sizes), [](std::uint32_t n) { return n < 0xff; })) {
        h.word(sizes[0] | (sizes[1] << 8) | (sizes[2] << 16) | (sizes[3] << 24));
    } else {
        h.word(0xffffffffu);
        for (const std::uint32_t n : sizes) {
            h.word(n);
        }
    }
    if ((sizes[0] | sizes[1] | sizes[2] | sizes[3]) <= 1) {
        // The usual link, at most one address per family and side: each
        // set's member taken straight, without walking the set.
        if (sizes[0] != 0) {
            h.word(remoteIpv4Addr_.front().value());
        }
        if (sizes[1] != 0) {
            h.bytes16(remoteIpv6Addr_.front().bytes().data());
        }
        if (sizes[2] != 0) {
            h.word(localIpv4Addr_.front().value());
        }
        if (sizes[3] != 0) {
            h.bytes16(localIpv6Addr_.front().bytes().data());
        }
    } else {
        mixMembers(h, remoteIpv4Addr_);
        mixMembers(h, remoteIpv6Addr_);
        mixMembers(h, localIpv4Addr_);
        mixMembers(h, localIpv6Addr_);
    }
    // Seven identifier bytes and the two of the topology: two words and a byte.
    const std::uint64_t id = nodeId_.littleEndian();
    const std::uint32_t mt = mtId_.value();
    h.word(static_cast<std::uint32_t>(id)).word(static_cast<std::uint32_t>(id >> 32) | ((mt & 0xffu) << 24));
    return h.result(mt >> 8, 1);
}

bool NeighborKey::isEq(const NeighborKey& a, const NeighborKey& b) noexcept {
    return &a == &b || (a.nodeId_ == b.nodeId_ && a.mtId_ == b.mtId_ &&
                        Kest::sameMembers(a.remoteIpv4Addr_, b.remoteIpv4Addr_) &&
                        Kest::sameMembers(a.remoteIpv6Addr_, b.remoteIpv6Addr_) &&
                        Kest::sameMembers(a.localIpv4Addr_, b.localIpv4Addr_) &&
                        Kest::sameMembers(a.localIpv6Addr_, b.localIpv6Addr_));
}

std::strong_ordering operator<=>(const NeighborKey& a, const NeighborKey& b) noexcept {
    if (&a == &b) {
        return std::strong_ordering::equal;
    }
    if (const auto c = a.nodeId_ <=> b.nodeId_; c != 0) {
        return c;
    }
    if (const auto c = compareSets(a.remoteIpv4Addr_, b.remoteIpv4Addr_); c != 0) {
        return c;
    }
    if (const auto c = compareSets(a.remoteIpv6Addr_, b.remoteIpv6Addr_); c != 0) {
        return c;
    }
    if (const auto c = compareSets(a.localIpv4Addr_, b.localIpv4Addr_); c != 0) {
        return c;
    }
    if (const auto c = compareSets(a.localIpv6Addr_, b.localIpv6Addr_); c != 0) {
        return c;
    }
    return a.mtId_ <=> b.mtId_;
}

Poldo::String NeighborKey::toStrep() const {
    Poldo::OStringStream os;
    os << nodeId_.toStrep();
    putFirst(os, ";lv4", localIpv4Addr_);
    putFirst(os, ";rv4", remoteIpv4Addr_);
    putFirst(os, ";lv6", localIpv6Addr_);
    putFirst(os, ";rv6", remoteIpv6Addr_);
    if (mtId_.value() != 0) {
        os << ";mtId " << mtId_.value();
    }
    return os.str();
}

std::ostream& operator<<(std::ostream& os, const NeighborKey& k) {
    return Kest::writeValue(os, k);
}

IGP_DEFINE_TYPE_DATA(NeighborKey, NeighborKey::kestTypeName, value, {"nodeId", 2, AttrKind::scalar},
                     {"remoteIpv4Addr", 3, AttrKind::hashCollection, RemoteIpv4AddrSet::salt},
                     {"remoteIpv6Addr", 4, AttrKind::hashCollection, RemoteIpv6AddrSet::salt},
                     {"localIpv4Addr", 5, AttrKind::hashCollection, LocalIpv4AddrSet::salt},
                     {"localIpv6Addr", 6, AttrKind::hashCollection, LocalIpv6AddrSet::salt},
                     {"mtId", 7, AttrKind::scalar}, {"toStrep", 8, AttrKind::function},
                     {"copyFrom", 9, AttrKind::function}, {"addressesEmpty", 10, AttrKind::function},
                     {"twoWayCheckAddrCmp", 11, AttrKind::function})

}  // namespace Routing::IgpCommon
