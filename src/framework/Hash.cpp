#include "IgpCommon/framework/Hash.h"

#include <cstdlib>
#include <random>

namespace Kest {

namespace {

std::uint32_t chooseSeed() {
    if (const char* fixed = std::getenv("IGPCOMMON_HASH_SEED"); fixed != nullptr && *fixed != '\0') {
        char* end = nullptr;
        const unsigned long long v = std::strtoull(fixed, &end, 0);
        if (end != nullptr && *end == '\0') {
            return static_cast<std::uint32_t>(v);
        }
    }
    std::random_device rd;
    return static_cast<std::uint32_t>(rd());
}

}  // namespace

const std::uint32_t HashHelper::seed_ = chooseSeed();

}  // namespace Kest
