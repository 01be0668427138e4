#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/ThreadControl.h"

namespace Poldo {

std::atomic<bool> ThreadControl::flag_{false};

void RefCounted::runtimeFlagsIs(std::uint32_t flags) const noexcept {
    flags &= flagMask;
    if (ThreadControl::multiThreaded()) {
        std::uint32_t w = word_.load(std::memory_order_relaxed);
        while (!word_.compare_exchange_weak(w, (w & ~flagMask) | flags, std::memory_order_relaxed)) {
        }
    } else {
        word_.store((word_.load(std::memory_order_relaxed) & ~flagMask) | flags, std::memory_order_relaxed);
    }
}

}  // namespace Poldo
