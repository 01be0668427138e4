// Heap accounting of the benchmark binary: it replaces the global operator
// new and delete (the library, a shared object, resolves them here too) to
// count calls and the bytes glibc really holds for each block.
#pragma once

#include <cstdint>

namespace IgpBench::AllocCounter {

/// Calls of any operator new since the process started, the slab's 64 KiB
/// chunks excluded (the slab blocks carved from them are counted by the
/// entities' allocation trackers already).
std::uint64_t allocations() noexcept;
/// Bytes of the heap blocks alive now, each counted as glibc's chunk
/// (usable size plus its 8-octet header).
std::int64_t liveBytes() noexcept;
/// The part of liveBytes() in 64 KiB blocks: the chunks the slab allocator
/// carves its blocks from (it never gives them back), so that slab memory is
/// counted once, by Drimm::Slab::bytesInUse().
std::int64_t slabChunkBytes() noexcept;
/// Heap blocks alive now, the slab's chunks excluded (the slab never frees
/// them, so every free is of some other block).
std::int64_t liveBlocks() noexcept;

}  // namespace IgpBench::AllocCounter
