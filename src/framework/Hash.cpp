#include "IgpCommon/framework/Hash.h"

#include <cstdio>
#include <cstdlib>
#include <random>

namespace Kest {

std::optional<std::uint32_t> HashHelper::parseSeed(std::string_view text) noexcept {
    unsigned base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    std::uint64_t v = 0;
    for (const char c : text) {
        unsigned digit = 0;
        if (c >= '0' && c <= '9') {
            digit = static_cast<unsigned>(c - '0');
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a' + 10);
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            digit = static_cast<unsigned>(c - 'A' + 10);
        } else {
            return std::nullopt;
        }
        v = v * base + digit;
        if (v > 0xffffffffu) {
            return std::nullopt;
        }
    }
    return static_cast<std::uint32_t>(v);
}

namespace {

constexpr const char* seedVariable = "IGPCOMMON_HASH_SEED";

std::uint32_t chooseSeed() {
    const char* fixed = std::getenv(seedVariable);
    if (fixed == nullptr || *fixed == '\0') {
        std::random_device rd;
        return static_cast<std::uint32_t>(rd());
    }
    if (const auto seed = HashHelper::parseSeed(fixed)) {
        return *seed;
    }
    // Loading a library has nobody to return an error to (see Hash.h).
    std::fprintf(stderr,
                 "libIgpCommon: %s='%s' is not a hash seed: give a number from 0 to 4294967295, in decimal "
                 "or as 0x and hexadecimal digits, or leave the variable empty or unset for a random seed\n",
                 seedVariable, fixed);
    std::abort();
}

}  // namespace

const std::uint32_t HashHelper::seed_ = chooseSeed();

}  // namespace Kest
