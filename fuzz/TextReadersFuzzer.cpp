// Every text reader against arbitrary text: the first byte picks the type, the rest is the text.
// A reader returns a value or throws the parse or range exception; what reads prints to a text that
// reads back; a failed read leaves no object alive (README.md).
// IGPCOMMON_FUZZ_WRITE_SEEDS=DIR writes the seed corpus (one canonical text per type) to DIR and exits.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "FuzzSupport.h"
#include "IgpCommon/IgpLsp.h"

namespace {

using namespace Routing::IgpCommon;
using Routing::IgpCommon::detail::NeighborAttrsPresent;
using Routing::IgpCommon::detail::SidLabelBindingFlags;
using Routing::IgpCommon::detail::SidLabelBindingFlagsBitsMask;

// Every type that Kest::strepToValue reads. The seed writer and the fuzzer index this one list,
// so a type added here gets its seed and its share of the inputs. IgpNodeId and NeighborKey hold
// collections and have no reader: asking for one stops the process, as their headers say.
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

// A value of each type with every attribute set away from its default where that is easy, so
// that each seed shows the whole shape of its form.
template <class T>
T sample() {
    if constexpr (std::is_same_v<T, bool>) {
        return true;
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<T>(100);
    } else if constexpr (std::is_same_v<T, IgpLevel>) {
        return igpLevelIsisLevel2;
    } else if constexpr (std::is_same_v<T, IgpProto>) {
        return igpProtoIsis;
    } else if constexpr (std::is_same_v<T, SidLabelBindingFlagsBitsMask>) {
        return detail::floodBitMask;
    } else if constexpr (std::is_same_v<T, Lumo::IpAddr>) {
        return Lumo::IpAddr(0x0a010203u);
    } else if constexpr (std::is_same_v<T, Lumo::Ip6Addr>) {
        return read<T>("2001:db8::1:0:0:1");
    } else if constexpr (std::is_same_v<T, Lumo::IpGenAddr>) {
        return read<T>("fe80::1");
    } else if constexpr (std::is_same_v<T, Lumo::IpGenPrefix>) {
        return read<T>("10.1.0.0/16");
    } else if constexpr (std::is_same_v<T, Lumo::MplsLabel>) {
        return Lumo::MplsLabel(16001);
    } else if constexpr (std::is_same_v<T, Routing::Isis::SystemId>) {
        return Routing::Isis::SystemId({0x19, 0x21, 0x68, 0x00, 0x10, 0x01});
    } else if constexpr (std::is_same_v<T, Routing::Isis::AreaId>) {
        return read<T>("49.0001");
    } else if constexpr (std::is_same_v<T, IgpMultiTopologyId>) {
        return IgpMultiTopologyId(2);
    } else if constexpr (std::is_same_v<T, Poldo::Ptr<IgpFlexAlgoEag>>) {
        return read<T>("[1, 4294967295]");
    } else if constexpr (std::is_same_v<T, Poldo::Ptr<IgpFlexAlgoSrlg>>) {
        return read<T>("[7, 9]");
    } else if constexpr (requires { T::checked(std::uint64_t{T::max}); }) {
        return T::checked(T::max);
    } else {
        return T();
    }
}

void writeSeeds(const std::filesystem::path& dir) {
    std::filesystem::create_directories(dir);
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (
            [&] {
                const std::string text = Kest::strep(sample<std::tuple_element_t<I, Readable>>());
                std::ofstream out(dir / ("type" + std::to_string(I)), std::ios::binary);
                out.put(static_cast<char>(I));
                out << text;
            }(),
            ...);
    }
    (std::make_index_sequence<readableCount>{});
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (const char* dir = std::getenv("IGPCOMMON_FUZZ_WRITE_SEEDS")) {
        writeSeeds(dir);
        std::exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    dispatch(data[0] % readableCount, text);
    return 0;
}
