// The key of a reachable prefix: the IP prefix and its topology.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/Identifiers.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IgpCommon {

class PrefixKey {
public:
    PrefixKey() noexcept = default;
    PrefixKey(const Lumo::IpGenPrefix& prefix, IgpMultiTopologyId mtId) noexcept
        : prefix_(prefix), mtId_(mtId) {}
    /// Reads the generic text form; a range error in an attribute names it ("prefix", "mtId").
    explicit PrefixKey(Kest::CharRange& r);

    const Lumo::IpGenPrefix& prefix() const noexcept { return prefix_; }
    void prefixIs(const Lumo::IpGenPrefix& v) & noexcept { prefix_ = v; }
    IgpMultiTopologyId mtId() const noexcept { return mtId_; }
    void mtIdIs(IgpMultiTopologyId v) & noexcept { mtId_ = v; }

    /// The address (4 or 16 bytes), then the family, the length and the
    /// topology as one last word: every byte of the key through the seeded
    /// hash, nothing before it.
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    static bool isEq(const PrefixKey& a, const PrefixKey& b) noexcept {
        return &a == &b || (a.prefix_ == b.prefix_ && a.mtId_ == b.mtId_);
    }
    friend bool operator==(const PrefixKey& a, const PrefixKey& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const PrefixKey& a, const PrefixKey& b) noexcept {
        if (&a == &b) {
            return std::strong_ordering::equal;
        }
        if (a.prefix_ < b.prefix_) {
            return std::strong_ordering::less;
        }
        if (b.prefix_ < a.prefix_) {
            return std::strong_ordering::greater;
        }
        return a.mtId_ <=> b.mtId_;
    }
    friend std::ostream& operator<<(std::ostream& os, const PrefixKey& k);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::PrefixKey";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("prefix", &PrefixKey::prefix_), Kest::attr("mtId", &PrefixKey::mtId_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    Lumo::IpGenPrefix prefix_;
    IgpMultiTopologyId mtId_;
};

}  // namespace Routing::IgpCommon
