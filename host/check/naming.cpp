#include "host/check/naming.h"

#include "host/base/unicode.h"

#include <cstdio>
#include <iterator>

namespace fmxhost::check {
namespace {

template <class Entry>
std::string named(std::string_view kind, const Entry& entry)
{
    std::string text(kind);
    text.append(" ").append(std::to_string(entry.id));
    return entry.name.empty() ? text : text.append(" ").append(toUtf8(entry.name));
}

} // namespace

std::string nameOf(const fmxkit::ExternalFunction& function)
{
    return named("function", function);
}

std::string nameOf(const fmxkit::ScriptStep& step)
{
    return named("script step", step);
}

std::string inQuotes(std::u16string_view text)
{
    constexpr std::size_t shown = 200;
    const std::string tail = text.size() > shown ? "…\"" : "\"";
    return "\"" + toUtf8(text.substr(0, shown)) + tail;
}

std::string idText(std::uint32_t id)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto character = static_cast<char>(id >> shift & 0xFF);
        if (character < ' ' || character > '~') {
            char digits[sizeof "0x00000000"];
            std::snprintf(digits, sizeof digits, "0x%08X", id);
            return digits;
        }
        text.push_back(character);
    }
    return "\"" + text + "\"";
}

std::string numbersText(const std::vector<unsigned>& numbers)
{
    std::string text;
    for (auto first = numbers.begin(); first != numbers.end();) {
        auto last = first;
        while (std::next(last) != numbers.end() && *std::next(last) == *last + 1) {
            ++last;
        }
        if (last - first < 2) {
            last = first;
        }
        text.append(text.empty() ? "" : ", ").append(std::to_string(*first));
        if (last != first) {
            text.append(" to ").append(std::to_string(*last));
        }
        first = std::next(last);
    }
    return text;
}

} // namespace fmxhost::check
