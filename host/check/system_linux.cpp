#include "host/check/system.h"

#include <csignal>
#include <malloc.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Sanitizers put an allocator of their own in the C library's place (sanitizer/allocator_interface.h).
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes(); // NOLINT(bugprone-reserved-identifier)

namespace fmxhost::check {
namespace {

std::size_t entriesOf(const char* folder)
{
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// Bytes in all mappings of proc(5)'s maps but the heap that brk(2) makes: that one is measured exactly.
std::size_t mappedBytes()
{
    std::ifstream maps("/proc/self/maps");
    std::size_t bytes = 0;
    std::string line;
    while (std::getline(maps, line)) {
        std::size_t end = 0;
        const std::size_t first = std::stoul(line, &end, 16);
        const std::size_t last = std::stoul(line.substr(end + 1), nullptr, 16);
        if (!line.ends_with("[heap]")) {
            bytes += last - first;
        }
    }
    return bytes;
}

} // namespace

Resources resourcesInUse()
{
    Resources resources;
    resources.descriptors = entriesOf("/proc/self/fd");
    resources.threads = entriesOf("/proc/self/task");
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        // It keeps freed memory for a while, so mappings say nothing.
        resources.heap = __sanitizer_get_current_allocated_bytes();
    } else {
        const struct mallinfo2 heap = mallinfo2();
        resources.heap = heap.uordblks + heap.hblkhd;
        resources.mapped = mappedBytes();
    }
    return resources;
}

void measureHeapsExactly()
{
    // The C library's per-thread cache holds freed memory that mallinfo2(3) counts as used.
    const char* set = std::getenv("GLIBC_TUNABLES");
    const std::string others = set != nullptr && *set != '\0' ? std::string(set) + ":" : "";
    setenv("GLIBC_TUNABLES", (others + "glibc.malloc.tcache_count=0").c_str(), 1);
}

void endWithParent()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

} // namespace fmxhost::check
