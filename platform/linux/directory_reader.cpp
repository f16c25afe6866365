// Straight from the kernel (getdents64(2)), some 8,000 entries of usual names to a call.

#include "platform/posix/directory_reader.h"

#include "platform/posix/descriptor.h"

#include <cerrno>

namespace platform::posix {

void DirectoryReader::fill()
{
    constexpr std::size_t step = std::size_t{256} * 1024;
    do {
        reserve(filled_ + step);
        const auto bytes =
            retried([this] { return getdents64(folder_, buffer_.get() + filled_, capacity_ - filled_); });
        error_ = bytes < 0 ? errno : 0;
        isAtEnd_ = bytes <= 0;
        filled_ += isAtEnd_ ? 0 : static_cast<std::size_t>(bytes);
    } while (!isAtEnd_ && names_ != Names::asTheyAreRead);
}

DirectoryEntry DirectoryReader::entryAt(const std::byte* record)
{
    // The kernel aligns every record for direct access (getdents(2), d_reclen).
    const auto* entry = reinterpret_cast<const dirent64*>(record);
    position_ += entry->d_reclen;
    return {entry->d_name, entry->d_type};
}

} // namespace platform::posix
