// What a fuzz target is made of. Each target defines test(), which is called with one input after the other and ends
// the process when a property doesn't hold; libFuzzer then keeps the input.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// Defined by each target. `input` may be anything; the same input does the same every time.
void test(std::string_view input);

[[noreturn]] void fail(const char* property, const char* file, int line);

// The parts of an input between unit separators (0x1F), at least `count`: what is missing is empty.
std::vector<std::string_view> fields(std::string_view input, std::size_t count);

// UTF-16 for inputs: bytes that aren't UTF-8 become lone surrogates, of both kinds, so that any text can come.
std::u16string anyUnits(std::string_view bytes);

// Conversions by ICU, to compare with: each maximal ill-formed part becomes one U+FFFD; nothing where a surrogate
// stands alone.
std::u16string referenceUtf16(std::string_view bytes);
std::optional<std::string> referenceUtf8(std::u16string_view text);

} // namespace fuzz

#define FUZZ_CHECK(...) ((__VA_ARGS__) ? void() : ::fuzz::fail(#__VA_ARGS__, __FILE__, __LINE__))
