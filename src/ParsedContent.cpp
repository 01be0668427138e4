#include "IgpCommon/ParsedContent.h"

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

const Poldo::Ptr<Node>& IsisLspParsedContent::nodeNew(const IgpNodeId& nodeId) {
    node_ = spareNodes_.rooms.make(nodeId);
    return node_;
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

// What recycle() does with each node, neighbor or SRLG record it drops:
// keeps the storage of one that nobody else holds. Each new member is built
// in a kept room while there is one, so the rooms never outnumber the members
// held at once; after a rejected decoding, only as many as the last recycle
// left are kept.
template <class T>
auto IsisLspParsedContent::spare(SpareRooms<T>& spares) const noexcept {
    const std::uint32_t limit = keepNoMore_ ? spares.afterRecycle : ~std::uint32_t{0};
    return [&spares, limit](Poldo::Ptr<T>& m) noexcept {
        if (spares.rooms.size() < limit) {
            spares.rooms.take(m);
        }
    };
}

void IsisLspParsedContent::recycle(std::uint32_t neighbors, std::uint32_t prefixes, std::uint32_t srlgs) {
    // A kept table may be this many times larger than the members need:
    // iterating it costs a walk over its slots, but less than a new block
    // for every LSP whose size differs from the last one's.
    constexpr std::uint32_t maxTimes = 8;
    spare(spareNodes_)(node_);
    node_ = nullptr;
    parsedSrCapFragId_ = 0;
    parsedSrlbFragId_ = 0;
    neighborKey_ = NeighborKey();
    prefixKey_ = PrefixKey();
    neighbor_.clearFor(neighbors, maxTimes, spare(spareNeighbors_));
    parsedSrLg_.clearFor(srlgs, maxTimes, spare(spareSrlgs_));
    prefix_.clearFor(prefixes, maxTimes);
    keepNoMore_ = false;
    spareNodes_.afterRecycle = spareNodes_.rooms.size();
    spareNeighbors_.afterRecycle = spareNeighbors_.rooms.size();
    spareSrlgs_.afterRecycle = spareSrlgs_.rooms.size();
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
