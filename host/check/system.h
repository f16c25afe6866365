// What "fmxhost check" asks of the operating system beyond POSIX.
#pragma once

#include <cstddef>
#include <optional>

namespace fmxhost::check {

// What this process holds at a moment. Empty: not known here.
struct Resources {
    std::size_t descriptors = 0;
    std::optional<std::size_t> threads;
    std::optional<std::size_t> heap;   // bytes allocated and not freed
    std::optional<std::size_t> mapped; // bytes of address space beside the heap
};
Resources resourcesInUse();

// Lets the allocator of the processes that this one starts count exactly. Changes the environment: one thread only.
void measureHeapsExactly();

// Ends this process when the one that started it ends, where that can be asked for.
void endWithParent();

} // namespace fmxhost::check
