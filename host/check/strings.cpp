// strings, options: what the plug-in says about itself.
#include "host/check/test.h"

#include <algorithm>
#include <array>
#include <set>

namespace fmxhost::check {
namespace {

constexpr std::uint32_t usualCapacity = 1024;
constexpr char16_t guard = 0xE5A7; // of the private use area: no text of a plug-in's

struct Answer {
    std::u16string text; // up to its zero, or to the capacity
    bool untouched = false;
    const char* fault = nullptr; // what is wrong with how it lies in its buffer, if anything
};

Answer ask(Plugin& plugin, PluginString number, std::uint32_t capacity)
{
    // Guards on both sides of the buffer. The one behind is larger than any answer that ignores its capacity.
    constexpr std::size_t guardBefore = 64;
    constexpr std::size_t guardBehind = std::size_t{64} * 1024;
    std::u16string buffer(guardBefore + capacity + guardBehind, guard);
    char16_t* const begin = buffer.data() + guardBefore;
    plugin.send(Message::stringRequest, static_cast<std::uint8_t>(number), 0, capacity,
                reinterpret_cast<fmx::ptrtype>(begin));

    const auto isUntouched = [](std::u16string_view part) {
        return part.find_first_not_of(guard) == std::u16string_view::npos;
    };
    const std::u16string_view all = buffer;
    const std::u16string_view inside = all.substr(guardBefore, capacity);
    const std::size_t end = inside.find(u'\0');
    Answer answer{std::u16string(inside.substr(0, end)), isUntouched(inside), nullptr};
    if (!isUntouched(all.substr(0, guardBefore)) || !isUntouched(all.substr(guardBefore + capacity))) {
        answer.untouched = false;
        answer.fault = "is written beyond it";
    } else if (end == std::u16string_view::npos) {
        answer.fault = answer.untouched ? "isn't answered: not even a terminating zero is written"
                                        : "fills it without a terminating zero";
    }
    return answer;
}

std::string askedFor(const std::string& label, std::uint32_t capacity)
{
    return label + ", asked for with a buffer of " + std::to_string(capacity) + (capacity == 1 ? " unit" : " units");
}

struct Request {
    PluginString number;
    std::string_view name;
    bool required;
};
constexpr std::array<Request, 4> requests{{{PluginString::name, "name", true},
                                           {PluginString::preferences, "text for the preferences", false},
                                           {PluginString::options, "options string", true},
                                           {PluginString::helpLocation, "help location", false}}};

// Asks in buffers of several sizes: the answer comes whole, cut or dropped, but never beyond them. One that is too
// small may also be left as it is: FileMaker's are large enough.
void examineString(const Examination& examination, Plugin& plugin, const Request& request)
{
    const std::string label =
        "string " + std::to_string(static_cast<int>(request.number)) + " (" + std::string(request.name) + ")";
    examination.step("the request for " + label);
    const Answer whole = ask(plugin, request.number, usualCapacity);
    if (whole.fault != nullptr) {
        examination.fail(askedFor(label, usualCapacity) + ", " + whole.fault);
        return;
    }
    if (whole.text.empty()) {
        examination.tell(request.required ? Event::failure : Event::note, label + " is empty");
    }
    const auto length = static_cast<std::uint32_t>(whole.text.size());
    // A buffer in which one unit stays free beside the zero holds the text in any way of counting.
    const std::uint32_t roomy = length + 2;
    for (const std::uint32_t capacity :
         std::set<std::uint32_t>{1, 2, 3, 8, 64, std::max(length, 1U), length + 1, roomy}) {
        const std::string what = askedFor(label, capacity);
        examination.step(what);
        const Answer answer = ask(plugin, request.number, capacity);
        if (capacity < roomy && answer.untouched) {
            continue;
        }
        if (answer.fault != nullptr) {
            examination.fail(what + ", " + answer.fault);
            return;
        }
        if (!whole.text.starts_with(answer.text)) {
            examination.fail(what + ", is " + inQuotes(answer.text) + " instead of " + inQuotes(whole.text));
        } else if (capacity >= roomy && answer.text != whole.text) {
            examination.fail(what + ", isn't delivered whole, although it fits: it has " + std::to_string(length));
        }
    }
}

void examineOptionsText(const Examination& examination, std::u16string_view options)
{
    // What may stand at each position behind the four characters of the ID: "1"; whether the plug-in can be configured;
    // "n" for new style functions; whether it wants start-up and shut-down, idle, and session and file shut-down
    // messages; "n".
    constexpr std::size_t idLength = 4;
    constexpr std::array<std::u16string_view, 7> allowed{u"1", u"Yn", u"n", u"Yn", u"Yn", u"Yn", u"n"};
    constexpr std::size_t length = idLength + allowed.size();
    if (options.size() != length) {
        examination.fail("the options string " + inQuotes(options) + " has " + std::to_string(options.size()) +
                         " characters instead of " + std::to_string(length));
        return;
    }
    for (std::size_t index = 0; index < length; ++index) {
        const char16_t unit = options[index];
        const bool inId = index < idLength;
        const std::u16string_view expected = inId ? u"" : allowed.at(index - idLength);
        if (inId ? unit <= u' ' || unit > u'~' : expected.find(unit) == std::u16string_view::npos) {
            examination.fail("character " + std::to_string(index + 1) + " of the options string " + inQuotes(options) +
                             " is " + inQuotes(options.substr(index, 1)) +
                             "; expected: " + (inId ? "visible ASCII" : "one of " + inQuotes(expected)));
        }
    }
}

// Four characters, the first one in the highest byte, in quotes.
std::string idText(std::uint32_t id)
{
    std::u16string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text.push_back(static_cast<char16_t>(id >> shift & 0xFF));
    }
    return inQuotes(text);
}

template <typename Entry>
void examineIdOf(const Examination& examination, const std::vector<Entry>& entries, std::uint32_t id)
{
    for (const Entry& entry : entries) {
        if (entry.pluginId != id) {
            examination.fail(nameOf(entry) + " is registered under the ID " + idText(entry.pluginId) +
                             ", the options string says " + idText(id));
        }
    }
}

} // namespace

void examineStrings(Examination& examination)
{
    Plugin& plugin = examination.loaded();
    for (const Request& request : requests) {
        examineString(examination, plugin, request);
    }
    examination.step("");
}

void examineOptions(Examination& examination)
{
    examineOptionsText(examination, examination.loaded().options());
    Plugin& plugin = examination.started();
    if (plugin.id() != 0) { // too short a text is reported above
        examineIdOf(examination, fmxkit::externalFunctions(), plugin.id());
        examineIdOf(examination, fmxkit::scriptSteps(), plugin.id());
    }
}

} // namespace fmxhost::check
