// Straight from the kernel (getdents64(2)), some 8,000 entries of usual names to a call.

#include "platform/posix/directory_reader.h"

#include "platform/posix/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace platform::posix {

namespace {

constexpr std::size_t step = std::size_t{256} * 1024;

} // namespace

void DirectoryReader::start(int folder, Names names)
{
    folder_ = folder;
    names_ = names;
    isAtEnd_ = false;
    position_ = filled_ = 0;
    error_ = 0;
}

void DirectoryReader::reserve(std::size_t capacity)
{
    if (capacity > capacity_) {
        capacity_ = std::max(capacity, filled_ * 2);
        auto larger = std::make_unique_for_overwrite<std::byte[]>(capacity_);
        std::copy_n(buffer_.get(), filled_, larger.get());
        buffer_ = std::move(larger);
    }
}

bool DirectoryReader::fill()
{
    position_ = filled_ = 0;
    do {
        reserve(filled_ + step);
        const auto bytes =
            retried([this] { return getdents64(folder_, buffer_.get() + filled_, capacity_ - filled_); });
        if (bytes < 0) {
            error_ = errno;
        }
        isAtEnd_ = bytes <= 0;
        filled_ += isAtEnd_ ? 0 : static_cast<std::size_t>(bytes);
    } while (!isAtEnd_ && names_ != Names::asTheyAreRead);
    return filled_ > 0 && error_ == 0;
}

const DirectoryEntry* DirectoryReader::next()
{
    for (;;) {
        if (position_ >= filled_ && (isAtEnd_ || !fill())) {
            filled_ = position_ = 0;
            return nullptr;
        }
        // The kernel aligns every record for direct access (getdents(2), d_reclen).
        const auto* record = reinterpret_cast<const dirent64*>(buffer_.get() + position_);
        position_ += record->d_reclen;
        const std::string_view name(record->d_name);
        if (name != "." && name != "..") {
            entry_ = {record->d_name, record->d_type};
            return &entry_;
        }
    }
}

} // namespace platform::posix
