// Every text reader against arbitrary text: the first byte picks the type, the rest is the text
// (README.md lists the checks).
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>

#include "FuzzSupport.h"
#include "IgpCommon/IgpLsp.h"

namespace {

using namespace Routing::IgpCommon;
using Routing::IgpCommon::detail::NeighborAttrsPresent;
using Routing::IgpCommon::detail::SidLabelBindingFlags;
using Routing::IgpCommon::detail::SidLabelBindingFlagsBitsMask;

// Every type that Kest::strepToValue reads; the first input byte indexes this list (the seed of type
// I starts with byte I). IgpNodeId and NeighborKey hold collections and have no reader: asking for
// one stops the process, as their headers say.
using Readable =
    std::tuple<bool, std::uint8_t, std::int32_t, std::uint64_t, Lumo::IpAddr, Lumo::Ip6Addr, Lumo::IpGenAddr,
               Lumo::IpGenPrefix, Lumo::MplsLabel, Routing::Isis::SystemId, Routing::Isis::AreaId,
               IgpMultiTopologyId, IgpLevel, IgpProto, SidLabelBindingFlagsBitsMask, IgpNodeIdIndex,
               SrSidRangeIndex, AreaIdIndex, BwIndex, AdminGroupIndex, NodeFlags, SrCapabilityFlags,
               PrefixFlags, SidLabelBindingFlags, NeighborAttrsPresent, SrSid, AdjacencySid, LanAdjacencySid,
               PrefixSid, LabelSid, SrSidRange, IgpMsd, PrefixKey, Poldo::Ptr<IgpFlexAlgoEag>,
               Poldo::Ptr<IgpFlexAlgoSrlg>, IgpFlexAlgoDefinition>;
constexpr std::size_t readableCount = std::tuple_size_v<Readable>;

// Definitions and constraint references compare the identity of entities, which a read never
// reproduces; for them the printed text is the whole comparison.
template <class T>
constexpr bool comparedByValue =
    !std::is_same_v<T, IgpFlexAlgoDefinition> && !std::is_same_v<T, Poldo::Ptr<IgpFlexAlgoEag>> &&
    !std::is_same_v<T, Poldo::Ptr<IgpFlexAlgoSrlg>>;

template <class T>
T read(const std::string& text) {
    return Kest::strepToValue(text, static_cast<T*>(nullptr));
}

/// Whether `f` threw the parse or the range exception (anything else escapes, a finding).
template <class F>
bool throwsReadError(F&& f) {
    try {
        f();
        return false;
    } catch (const Kest::ParseException&) {
    } catch (const Kest::RangeException&) {
    }
    return true;
}

template <class T>
void fuzzReader(const std::string& text) {
    IgpFuzz::leavesNothingAlive("a read left objects alive", [&] {
        std::optional<T> value;
        if (throwsReadError([&] { value.emplace(read<T>(text)); })) {
            // Enumerations also store through the reader's pointer; a failed read leaves it alone.
            if constexpr (std::is_enum_v<T>) {
                T out = static_cast<T>(0x5A);
                Kest::CharRange r(text);
                const bool failed = throwsReadError([&] { (void)sequenceToValue(r, &out); });
                IgpFuzz::check(!failed || out == static_cast<T>(0x5A),
                               "a failed enumeration read wrote its out parameter", text);
            }
            return;
        }
        const std::string printed = Kest::strep(*value);
        std::optional<T> back;
        IgpFuzz::check(!throwsReadError([&] { back.emplace(read<T>(printed)); }),
                       "the printed form does not read", text + " -> " + printed);
        IgpFuzz::check(Kest::strep(*back) == printed, "a printed value reads back to another text",
                       text + " -> " + printed + " -> " + Kest::strep(*back));
        if constexpr (comparedByValue<T>) {
            IgpFuzz::check(*back == *value, "a printed value reads back to an unequal value",
                           text + " -> " + printed);
        }
    });
}

template <std::size_t I = 0>
void dispatch(std::size_t index, const std::string& text) {
    if constexpr (I < readableCount) {
        if (index == I) {
            fuzzReader<std::tuple_element_t<I, Readable>>(text);
        } else {
            dispatch<I + 1>(index, text);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    dispatch(data[0] % readableCount, text);
    return 0;
}
