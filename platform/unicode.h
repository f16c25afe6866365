// Conversions between FileMaker's UTF-16 and the UTF-8 of file systems and C libraries. The same code serves every
// platform. Encodings: The Unicode Standard, chapter 3, D91 and D92, table 3-7.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// UTF-8 of `text`; empty when a surrogate stands alone.
std::optional<std::string> utf8FromUtf16(std::u16string_view text);

// UTF-16 of `bytes`. Each maximal part that isn't valid UTF-8 becomes one U+FFFD, so nothing is lost but what was
// never text.
std::u16string utf16FromUtf8(std::string_view bytes);

// The same, appended to `text`.
void appendUtf16FromUtf8(std::u16string& text, std::string_view bytes);

// Whether all of the bytes are ASCII; are valid UTF-8.
bool isAscii(std::string_view bytes);
bool isUtf8(std::string_view bytes);

// What a C library call takes as a path: UTF-8 of `path`; empty when the path isn't valid UTF-16 or holds a NUL,
// for such a text names nothing that can exist.
std::optional<std::string> fileSystemRepresentation(std::u16string_view path);

} // namespace platform
