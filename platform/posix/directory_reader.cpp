#include "platform/posix/directory_reader.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

namespace platform::posix {

void DirectoryReader::start(int folder, Names names)
{
    folder_ = folder;
    names_ = names;
    isAtEnd_ = false;
    position_ = filled_ = 0;
    error_ = 0;
}

const DirectoryEntry* DirectoryReader::next()
{
    for (;;) {
        if (position_ >= filled_) {
            position_ = filled_ = 0;
            if (isAtEnd_) {
                return nullptr;
            }
            fill();
            continue;
        }
        entry_ = entryAt(buffer_.get() + position_);
        const std::string_view name(entry_.name);
        if (name != "." && name != "..") {
            return &entry_;
        }
    }
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

} // namespace platform::posix
