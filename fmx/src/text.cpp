#include "text.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace fmxkit {
namespace {

using CaseMapping = int32_t (*)(UChar*, int32_t, const UChar*, int32_t, UErrorCode*);

// Maps into a buffer of the same size first: few texts change their length.
std::u16string mapCase(std::u16string_view units, CaseMapping mapping)
{
    std::u16string mapped(units.size(), u'\0');
    // An empty text may have no address, which ICU takes for a wrong argument.
    while (!units.empty()) {
        UErrorCode status = U_ZERO_ERROR;
        const int32_t size = mapping(mapped.data(), static_cast<int32_t>(mapped.size()), units.data(),
                                     static_cast<int32_t>(units.size()), &status);
        if (status == U_MEMORY_ALLOCATION_ERROR) {
            throw std::bad_alloc();
        }
        if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) {
            throw std::runtime_error("case mapping");
        }
        mapped.resize(static_cast<std::size_t>(size));
        if (status != U_BUFFER_OVERFLOW_ERROR) {
            break;
        }
    }
    return mapped;
}

std::size_t unitsOfCharacter(std::u16string_view units, std::size_t position)
{
    return U16_IS_LEAD(units[position]) && position + 1 < units.size() && U16_IS_TRAIL(units[position + 1]) ? 2 : 1;
}

// Whether the characters from `position` on fold to `folded`, the last of them entirely.
bool foldsTo(std::u16string_view units, std::size_t position, std::u16string_view folded)
{
    constexpr int32_t longestFolding = 8; // Unicode's full foldings have at most three characters
    while (!folded.empty()) {
        if (position == units.size()) {
            return false;
        }
        const char16_t unit = units[position];
        if (unit < 0x80) {
            const char16_t lower = unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
            if (lower != folded.front()) {
                return false;
            }
            folded.remove_prefix(1);
            ++position;
            continue;
        }
        const std::size_t count = unitsOfCharacter(units, position);
        UChar character[longestFolding];
        UErrorCode status = U_ZERO_ERROR;
        const int32_t size = u_strFoldCase(character, longestFolding, units.data() + position,
                                           static_cast<int32_t>(count), U_FOLD_CASE_DEFAULT, &status);
        if (U_FAILURE(status) || !folded.starts_with(std::u16string_view(character, static_cast<std::size_t>(size)))) {
            return false;
        }
        folded.remove_prefix(static_cast<std::size_t>(size));
        position += count;
    }
    return true;
}

bool isCharacterStart(std::u16string_view units, std::size_t position)
{
    return position == 0 || !U16_IS_TRAIL(units[position]) || !U16_IS_LEAD(units[position - 1]);
}

fmx::uint32 foundAt(std::size_t index)
{
    return index == std::u16string_view::npos ? fmx::Text::kSize_Invalid : static_cast<fmx::uint32>(index);
}

} // namespace

std::u16string foldCase(std::u16string_view units)
{
    return mapCase(units, [](UChar* target, int32_t capacity, const UChar* source, int32_t size, UErrorCode* status) {
        return u_strFoldCase(target, capacity, source, size, U_FOLD_CASE_DEFAULT, status);
    });
}

TextValue::TextValue(std::u16string units)
{
    if (units.size() > maximumSize) {
        throw std::length_error("text");
    }
    if (!units.empty()) {
        block_ = new Block;
        block_->units = std::move(units);
    }
}

TextValue::TextValue(const TextValue& other) noexcept : block_(other.block_)
{
    if (block_ != nullptr) {
        block_->references.fetch_add(1, std::memory_order_relaxed);
    }
}

TextValue::TextValue(TextValue&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}

TextValue& TextValue::operator=(TextValue other) noexcept
{
    std::swap(block_, other.block_);
    return *this;
}

TextValue::~TextValue()
{
    release();
}

void TextValue::release() noexcept
{
    if (block_ != nullptr && block_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete block_; // NOLINT(clang-analyzer-cplusplus.NewDelete): the analyzer can't follow the count
    }
    block_ = nullptr;
}

std::u16string_view TextValue::view() const noexcept
{
    return block_ == nullptr ? std::u16string_view() : std::u16string_view(block_->units);
}

std::u16string_view TextValue::part(fmx::uint32 position, fmx::uint32 size) const noexcept
{
    const std::u16string_view all = view();
    return all.substr(std::min<std::size_t>(position, all.size()), size);
}

std::u16string& TextValue::own()
{
    // Acquire: what another text's holder read happened before it gave the buffer up.
    if (block_ == nullptr || block_->references.load(std::memory_order_acquire) != 1) {
        TextValue copy;
        copy.block_ = new Block;
        copy.block_->units = view();
        std::swap(block_, copy.block_);
    }
    return block_->units;
}

void TextValue::insert(std::u16string_view units, std::size_t position)
{
    if (units.empty()) {
        return;
    }
    const TextValue before = units.data() >= view().data() && units.data() < view().data() + view().size()
                                 ? *this // keeps `units` alive: own() then copies
                                 : TextValue();
    if (view().size() + units.size() > maximumSize) {
        throw std::length_error("text");
    }
    std::u16string& target = own();
    target.insert(std::min(position, target.size()), units);
}

void TextValue::erase(std::size_t position, std::size_t size)
{
    if (position < view().size() && size > 0) {
        own().erase(position, size);
    }
}

void TextValue::uppercase()
{
    *this = TextValue(
        mapCase(view(), [](UChar* target, int32_t capacity, const UChar* source, int32_t size, UErrorCode* status) {
            return u_strToUpper(target, capacity, source, size, "", status);
        }));
}

void TextValue::lowercase()
{
    *this = TextValue(
        mapCase(view(), [](UChar* target, int32_t capacity, const UChar* source, int32_t size, UErrorCode* status) {
            return u_strToLower(target, capacity, source, size, "", status);
        }));
}

fmx::uint32 TextValue::find(std::u16string_view wanted, fmx::uint32 position) const
{
    return wanted.empty() ? fmx::Text::kSize_Invalid : foundAt(view().find(wanted, position));
}

fmx::uint32 TextValue::findPrevious(std::u16string_view wanted, fmx::uint32 position) const
{
    return wanted.empty() ? fmx::Text::kSize_Invalid : foundAt(view().rfind(wanted, position));
}

fmx::uint32 TextValue::findIgnoringCase(std::u16string_view wanted, fmx::uint32 position) const
{
    const std::u16string folded = foldCase(wanted);
    const std::u16string_view units = view();
    for (std::size_t i = position; !folded.empty() && i < units.size(); ++i) {
        if (isCharacterStart(units, i) && foldsTo(units, i, folded)) {
            return foundAt(i);
        }
    }
    return fmx::Text::kSize_Invalid;
}

fmx::uint32 TextValue::findPreviousIgnoringCase(std::u16string_view wanted, fmx::uint32 position) const
{
    const std::u16string folded = foldCase(wanted);
    const std::u16string_view units = view();
    if (folded.empty() || units.empty()) {
        return fmx::Text::kSize_Invalid;
    }
    for (std::size_t i = std::min<std::size_t>(position, units.size() - 1) + 1; i-- > 0;) {
        if (isCharacterStart(units, i) && foldsTo(units, i, folded)) {
            return foundAt(i);
        }
    }
    return fmx::Text::kSize_Invalid;
}

} // namespace fmxkit
