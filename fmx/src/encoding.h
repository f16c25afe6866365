// Bytes in the interface's encodings to UTF-16 and back.
#pragma once

#include <FMXTypes.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace fmxkit {

// Throws std::invalid_argument for an encoding that this kit doesn't know. Invalid bytes become U+FFFD, one for each
// maximal part of a broken UTF-8 sequence (Unicode 15, section 3.9).
std::u16string decode(std::string_view bytes, fmx::int32 encoding);
std::u16string decodeWide(std::wstring_view characters);

// Writes whole characters as long as they fit; returns the bytes written. What the encoding lacks becomes "?"; unpaired
// surrogates become U+FFFD in UTF-8.
std::size_t encode(std::u16string_view units, fmx::int32 encoding, char* buffer, std::size_t capacity);

} // namespace fmxkit
