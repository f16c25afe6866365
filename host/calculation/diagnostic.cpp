#include "host/calculation/diagnostic.h"

#include "host/unicode.h"

#include <unicode/utf16.h>

#include <algorithm>

namespace fmxhost {
namespace {

// How much of a line is shown around the place, in UTF-16 units.
constexpr std::size_t unitsBefore = 50;
constexpr std::size_t unitsAfter = 50;

constexpr std::u16string_view lineEnds = u"\r\n";

std::size_t lineStart(std::u16string_view source, std::size_t offset)
{
    if (offset == 0) {
        return 0;
    }
    const std::size_t end = source.find_last_of(lineEnds, offset - 1);
    return end == std::u16string_view::npos ? 0 : end + 1;
}

bool splitsPair(std::u16string_view text, std::size_t position)
{
    return position > 0 && position < text.size() && U16_IS_LEAD(text[position - 1]) && U16_IS_TRAIL(text[position]);
}

// What a terminal shows in the text's place: a tab and other controls would break the alignment.
std::u16string printable(std::u16string_view text)
{
    std::u16string result(text);
    std::replace_if(
        result.begin(), result.end(), [](char16_t unit) { return unit < 0x20 || (unit >= 0x7F && unit < 0xA0); }, u' ');
    return result;
}

} // namespace

Place placeOf(std::u16string_view source, std::size_t offset)
{
    offset = std::min(offset, source.size());
    Place place;
    for (std::size_t index = 0; index < offset; ++index) {
        const char16_t unit = source[index];
        const bool firstOfCrLf = unit == u'\r' && index + 1 < source.size() && source[index + 1] == u'\n';
        if ((unit == u'\n' || unit == u'\r') && !firstOfCrLf) {
            ++place.line;
            place.column = 1;
        } else if (!splitsPair(source, index)) {
            ++place.column;
        }
    }
    return place;
}

std::string pointAt(std::u16string_view source, Span span)
{
    const std::size_t offset = std::min(span.offset, source.size());
    const std::size_t start = lineStart(source, offset);
    std::u16string_view line = source.substr(start);
    line = line.substr(0, line.find_first_of(lineEnds));

    std::size_t from = offset - start > unitsBefore ? offset - start - unitsBefore : 0;
    std::size_t to = std::min(line.size(), offset - start + unitsAfter);
    if (splitsPair(line, from)) {
        --from;
    }
    if (splitsPair(line, to)) {
        ++to;
    }
    constexpr std::u16string_view ellipsis = u"…";
    std::u16string before;
    if (from > 0) {
        before = ellipsis;
    }
    before += printable(line.substr(from, offset - start - from));
    const std::u16string after = printable(line.substr(offset - start, to - (offset - start)));
    const std::size_t marked = displayWidth(after.substr(0, span.length));

    std::string text = toUtf8(before) + toUtf8(after);
    if (to < line.size()) {
        text += toUtf8(ellipsis);
    }
    text += '\n';
    text.append(displayWidth(before), ' ').append(1, '^');
    return text.append(marked > 0 ? marked - 1 : 0, '~');
}

} // namespace fmxhost
