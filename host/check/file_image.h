// A library file in memory, of which every access is checked against its end: files claim what they don't hold.
#pragma once

#include "host/check/binary.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace fmxhost::check {

class FileImage {
public:
    using Offset = std::uint64_t;

    explicit FileImage(std::vector<char> bytes) : bytes_(std::move(bytes)) {}

    // Errors: std::system_error when the file can't be read.
    static std::vector<char> contents(const std::filesystem::path& file)
    {
        std::vector<char> bytes(std::filesystem::file_size(file));
        std::ifstream stream(file, std::ios::binary);
        if (!stream || !stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
            throw std::system_error(errno, std::generic_category(), file.string());
        }
        return bytes;
    }

    std::size_t size() const { return bytes_.size(); }

    // Errors of all of these: BinaryError.
    template <class T>
    T at(Offset offset) const
    {
        static_assert(std::is_trivially_copyable_v<T>);
        T value;
        std::memcpy(&value, part(offset, sizeof value).data(), sizeof value);
        return value;
    }

    std::string_view part(Offset offset, Offset size) const
    {
        if (offset > bytes_.size() || bytes_.size() - offset < size) {
            throw BinaryError("it ends before what it refers to");
        }
        return {bytes_.data() + offset, static_cast<std::size_t>(size)};
    }

    // Up to its zero.
    std::string textAt(Offset offset) const
    {
        if (offset >= bytes_.size()) {
            throw BinaryError("it ends before a name that it refers to");
        }
        const std::string_view rest(bytes_.data() + offset, static_cast<std::size_t>(bytes_.size() - offset));
        return std::string(rest.substr(0, rest.find('\0')));
    }

private:
    std::vector<char> bytes_;
};

} // namespace fmxhost::check
