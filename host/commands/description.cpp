#include "host/commands/description.h"

#include "host/unicode.h"

namespace fmxhost {

Json describe(const fmxkit::ExternalFunction& function)
{
    return {{"id", function.id},
            {"name", toUtf8(function.name)},
            {"prototype", toUtf8(function.prototype)},
            {"description", toUtf8(function.description)},
            {"min", function.minimumArguments},
            {"max", function.maximumArguments},
            {"flags", function.flags}};
}

Json describe(const fmxkit::ScriptStep& step)
{
    return {{"id", step.id},
            {"name", toUtf8(step.name)},
            {"definition", toUtf8(step.definition)},
            {"description", toUtf8(step.description)},
            {"flags", step.flags}};
}

std::string jsonText(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string jsonLines(const Json& array)
{
    std::string text = "[";
    const char* separator = "\n";
    for (const Json& element : array) {
        text += separator + jsonText(element);
        separator = ",\n";
    }
    return text + "\n]\n";
}

std::string argumentCounts(const Function& function)
{
    const int minimum = minimumArguments(function);
    const int maximum = maximumArguments(function);
    if (maximum == anyNumberOfArguments) {
        return std::to_string(minimum) + " or more";
    }
    if (maximum == 0) {
        return "none";
    }
    if (minimum == maximum) {
        return std::to_string(minimum);
    }
    return std::to_string(minimum) + " to " + std::to_string(maximum);
}

std::u16string_view descriptionText(std::u16string_view description)
{
    const std::size_t bar = description.find(u'|');
    return bar == std::u16string_view::npos ? description : description.substr(bar + 1);
}

std::string wrapped(std::u16string_view text, std::size_t indent, std::size_t width)
{
    std::string result;
    std::size_t columns = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(u' '), text.size());
        const std::u16string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (word.empty()) {
            continue;
        }
        const bool first = result.empty();
        if (first || columns + 1 + displayWidth(word) > width) {
            result.append(first ? "" : "\n").append(indent, ' ');
            columns = indent;
        } else {
            result += ' ';
            ++columns;
        }
        result += toUtf8(word);
        columns += displayWidth(word);
    }
    return result;
}

} // namespace fmxhost
