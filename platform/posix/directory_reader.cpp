#include "platform/posix/directory_reader.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace platform::posix {

namespace {

// Without measuring the name, of which there may be millions.
bool isDots(const char* name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

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
        if (!isDots(entry_.name)) {
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
