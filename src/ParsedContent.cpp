#include "IgpCommon/ParsedContent.h"

#include <algorithm>

#include "Define.h"

namespace Routing::IgpCommon {

namespace {

// Find-or-create in a collection whose members carry their key: one look-up,
// which inserts on a miss.
template <class Map, class Key, class Create>
Poldo::Ptr<typename Map::member_type::element_type> findOrCreate(Map& map, const Key& key, Create create) {
    return *map.findOrInsert(key, create).first;
}

template <class Map, class Key>
Poldo::Ptr<typename Map::member_type::element_type> lookup(const Map& map, const Key& key) {
    const auto* found = map.find(key);
    return found ? *found : nullptr;
}

template <class Map, class Key>
Poldo::Ptr<typename Map::member_type::element_type> take(Map& map, const Key& key) {
    typename Map::member_type removed;
    map.erase(key, &removed);
    return removed;
}

}  // namespace

Poldo::Ptr<IsisLspParsedContent> IsisLspParsedContent::IsisLspParsedContentIs() {
    return Poldo::Ptr<IsisLspParsedContent>(new IsisLspParsedContent(), Poldo::adopt);
}

Poldo::Ptr<IsisLspParsedContent> isisLspParsedContentFactory() {
    return IsisLspParsedContent::IsisLspParsedContentIs();
}

Poldo::Ptr<Neighbor> IsisLspParsedContent::neighborIs(const NeighborKey& key) {
    return findOrCreate(neighbor_, key, [&] { return spareNeighbors_.rooms.make(key); });
}
Poldo::Ptr<Neighbor> IsisLspParsedContent::neighbor(const NeighborKey& key) const {
    return lookup(neighbor_, key);
}
Poldo::Ptr<Neighbor> IsisLspParsedContent::neighborDel(const NeighborKey& key) {
    return take(neighbor_, key);
}

Poldo::Ptr<Prefix> IsisLspParsedContent::prefixIs(const PrefixKey& key) {
    return findOrCreate(prefix_, key, [&] { return prefixFactory(key); });
}
Poldo::Ptr<Prefix> IsisLspParsedContent::prefix(const PrefixKey& key) const {
    return lookup(prefix_, key);
}
Poldo::Ptr<Prefix> IsisLspParsedContent::prefixDel(const PrefixKey& key) {
    return take(prefix_, key);
}

Poldo::Ptr<NeighborSrlg> IsisLspParsedContent::parsedSrLgIs(const Lumo::IpGenAddr& localAddr) {
    return findOrCreate(parsedSrLg_, localAddr, [&] { return spareSrlgs_.rooms.make(localAddr); });
}
Poldo::Ptr<NeighborSrlg> IsisLspParsedContent::parsedSrLg(const Lumo::IpGenAddr& localAddr) const {
    return lookup(parsedSrLg_, localAddr);
}
Poldo::Ptr<NeighborSrlg> IsisLspParsedContent::parsedSrLgDel(const Lumo::IpGenAddr& localAddr) {
    return take(parsedSrLg_, localAddr);
}

// Keeps the storage of the members nobody else holds, up to the most members
// held at once (or, after a rejected decoding, up to what was kept before it).
template <class Map, class T>
void IsisLspParsedContent::spareMembers(Map& map, SpareRooms<T>& spares) noexcept {
    std::uint32_t limit = spares.afterRecycle;
    if (!keepNoMore_) {
        spares.most = std::max(spares.most, map.size());
        limit = spares.most;
    }
    if (spares.rooms.size() < limit) {
        // The walk hands members out const, but the slots are not: each one
        // taken is left null, and clearFor() destroys it right after.
        map.forEachUnchecked([&](const Poldo::Ptr<T>& m) {
            if (spares.rooms.size() < limit) {
                spares.rooms.take(const_cast<Poldo::Ptr<T>&>(m));
            }
        });
    }
    spares.afterRecycle = spares.rooms.size();
}

void IsisLspParsedContent::recycle(std::uint32_t neighbors, std::uint32_t prefixes, std::uint32_t srlgs) {
    // A kept table may be this many times larger than the members need:
    // iterating it costs a walk over its slots, but less than a new block
    // for every LSP whose size differs from the last one's.
    constexpr std::uint32_t maxTimes = 8;
    node_ = nullptr;
    parsedSrCapFragId_ = 0;
    parsedSrlbFragId_ = 0;
    neighborKey_ = NeighborKey();
    prefixKey_ = PrefixKey();
    spareMembers(neighbor_, spareNeighbors_);
    spareMembers(parsedSrLg_, spareSrlgs_);
    keepNoMore_ = false;
    neighbor_.clearFor(neighbors, maxTimes);
    parsedSrLg_.clearFor(srlgs, maxTimes);
    prefix_.clearFor(prefixes, maxTimes);
}

using Kest::AttrKind;
IGP_DEFINE_ENTITY(IsisLspParsedContent, {"node", Attr::node, AttrKind::pointer},
                  {"parsedSrCapFragId", Attr::parsedSrCapFragId, AttrKind::scalar},
                  {"parsedSrlbFragId", Attr::parsedSrlbFragId, AttrKind::scalar},
                  {"neighborKey", Attr::neighborKey, AttrKind::scalar},
                  {"neighbor", Attr::neighbor, AttrKind::hashCollection, NeighborMap::salt},
                  {"parsedSrLg", Attr::parsedSrLg, AttrKind::hashCollection, SrlgMap::salt},
                  {"prefixKey", Attr::prefixKey, AttrKind::scalar},
                  {"prefix", Attr::prefix, AttrKind::hashCollection, PrefixMap::salt},
                  {"nodeRawPtr", Attr::nodeRawPtr, AttrKind::function})
IGP_DEFINE_ENTITY(NeighborSrlg, {"localAddr", 130, AttrKind::scalar},
                  {"srlgValue", 131, AttrKind::hashCollection, SrlgValueSet::salt})

}  // namespace Routing::IgpCommon
