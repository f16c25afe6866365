// What stands behind fmx::Text: UTF-16 units in a buffer that copies share until one of them changes.
#pragma once

#include "entry.h"

#include <FMXText.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

namespace fmxkit {

// Case-insensitive equality and folding work on whole texts without a language.
std::u16string foldCase(std::u16string_view units);

class TextValue {
public:
    static constexpr std::size_t maximumSize = 0x7FFFFFFF; // ICU counts in 32 bits, signed

    TextValue() = default;
    explicit TextValue(std::u16string units); // throws std::length_error beyond maximumSize
    TextValue(const TextValue& other) noexcept;
    TextValue(TextValue&& other) noexcept;
    TextValue& operator=(TextValue other) noexcept;
    ~TextValue();

    std::u16string_view view() const noexcept;
    // The part that a position and a size name, cut to what is there.
    std::u16string_view part(fmx::uint32 position, fmx::uint32 size) const noexcept;

    void insert(std::u16string_view units, std::size_t position); // `units` may lie in this text
    void erase(std::size_t position, std::size_t size);
    void uppercase();
    void lowercase();

    // Indices or fmx::Text::kSize_Invalid.
    fmx::uint32 find(std::u16string_view wanted, fmx::uint32 position) const;
    fmx::uint32 findPrevious(std::u16string_view wanted, fmx::uint32 position) const;
    fmx::uint32 findIgnoringCase(std::u16string_view wanted, fmx::uint32 position) const;
    fmx::uint32 findPreviousIgnoringCase(std::u16string_view wanted, fmx::uint32 position) const;

private:
    struct Block {
        std::atomic<std::size_t> references{1};
        std::u16string units;
    };

    std::u16string& own(); // this text's units, in a buffer that no other text shares
    void release() noexcept;

    Block* block_ = nullptr; // null: empty
};

template <>
struct Behind<fmx::Text> {
    using Type = TextValue;
};

} // namespace fmxkit
