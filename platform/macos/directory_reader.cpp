// By readdir(3), always all names first: some file systems skip entries when others are removed between two reads. A
// record is the entry's type and its name with the zero.

#include "platform/posix/directory_reader.h"

#include "platform/posix/descriptor.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

namespace platform::posix {

namespace {

constexpr std::size_t step = std::size_t{64} * 1024;

struct Close {
    void operator()(DIR* folder) const { closedir(folder); }
};

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
        capacity_ = std::max({capacity, filled_ * 2, step});
        auto larger = std::make_unique_for_overwrite<std::byte[]>(capacity_);
        std::copy_n(buffer_.get(), filled_, larger.get());
        buffer_ = std::move(larger);
    }
}

bool DirectoryReader::fill()
{
    isAtEnd_ = true;
    // Not opened anew, which takes the right to search the folder. closedir(3) closes it.
    Descriptor own(fcntl(folder_, F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, Close> folder(own ? fdopendir(own.get()) : nullptr);
    if (!folder) {
        error_ = errno;
        return false;
    }
    own.release();
    for (;;) {
        errno = 0;
        const dirent* found = readdir(folder.get());
        if (found == nullptr) {
            error_ = errno;
            return filled_ > 0 && error_ == 0;
        }
        const std::size_t length = std::strlen(found->d_name) + 1;
        reserve(filled_ + 1 + length);
        buffer_[filled_] = static_cast<std::byte>(found->d_type);
        std::memcpy(buffer_.get() + filled_ + 1, found->d_name, length);
        filled_ += 1 + length;
    }
}

const DirectoryEntry* DirectoryReader::next()
{
    for (;;) {
        if (position_ >= filled_ && (isAtEnd_ || !fill())) {
            filled_ = position_ = 0;
            return nullptr;
        }
        const auto* name = reinterpret_cast<const char*>(buffer_.get() + position_ + 1);
        entry_ = {name, static_cast<unsigned char>(buffer_[position_])};
        const std::string_view text(name);
        position_ += 1 + text.size() + 1;
        if (text != "." && text != "..") {
            return &entry_;
        }
    }
}

} // namespace platform::posix
