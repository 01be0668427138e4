// Process-wide switch between plain and atomic use counts.
#pragma once

#include <atomic>

namespace Poldo {

/// While `multiThreaded()` is false, use counts of entities change by plain
/// increments and decrements: the single thread that owns a database pays
/// nothing for atomicity. Switch it on before entities are shared with another
/// thread (for example before handing a Ptr to a worker); from then on every
/// count change is an atomic read-modify-write. The flag does not make the
/// entities themselves thread-safe: one thread still writes a database.
class ThreadControl {
public:
    static bool multiThreaded() noexcept { return flag_.load(std::memory_order_acquire); }
    static void multiThreadedIs(bool on) noexcept { flag_.store(on, std::memory_order_release); }

private:
    static std::atomic<bool> flag_;
};

}  // namespace Poldo
