// strings, options: what the plug-in says about itself.
#include "host/check/test.h"

#include <algorithm>
#include <array>

namespace fmxhost::check {
namespace {

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

    const std::u16string_view inside(begin, capacity);
    const std::size_t end = inside.find(u'\0');
    const std::size_t firstWritten = buffer.find_first_not_of(guard);
    Answer answer{std::u16string(inside.substr(0, end)), firstWritten == std::u16string::npos};
    if (!answer.untouched && (firstWritten < guardBefore ||
                              buffer.find_first_not_of(guard, guardBefore + capacity) != std::u16string::npos)) {
        answer.fault = "is written beyond it";
    } else if (end == std::u16string_view::npos) {
        answer.fault = answer.untouched ? "isn't answered: not even a terminating zero is written"
                                        : "fills it without a terminating zero";
    }
    return answer;
}

struct Request {
    PluginString number;
    const char* name;
    bool required;
};
constexpr std::array<Request, 4> requests{{{PluginString::name, "name", true},
                                           {PluginString::preferences, "text for the preferences", false},
                                           {PluginString::options, "options string", true},
                                           {PluginString::helpLocation, "help location", false}}};

// Asks in buffers of several sizes, a usual one first: the answer comes whole, cut or dropped, but never beyond them.
// One that is too small may also be left as it is: FileMaker's are large enough.
void examineString(const Examination& examination, Plugin& plugin, const Request& request)
{
    const std::string label = "string " + std::to_string(static_cast<int>(request.number)) + " (" + request.name + ")";
    std::u16string whole;
    std::vector<std::size_t> capacities{1024};
    for (std::size_t index = 0; index < capacities.size(); ++index) {
        const std::size_t capacity = capacities[index];
        const std::string what =
            label + ", asked for with a buffer of " + std::to_string(capacity) + (capacity == 1 ? " unit" : " units");
        examination.step(what);
        const Answer answer = ask(plugin, request.number, static_cast<std::uint32_t>(capacity));
        // A buffer in which one unit stays free beside the zero holds the text in any way of counting.
        const bool isRoomy = capacity >= whole.size() + 2;
        if (answer.untouched && !isRoomy) {
            continue;
        }
        if (answer.fault != nullptr) {
            examination.fail(what + ", " + answer.fault);
            return;
        }
        if (index == 0) {
            whole = answer.text;
            const std::size_t size = whole.size();
            capacities.insert(capacities.end(), {1, 2, 3, 8, 64, std::max<std::size_t>(size, 1), size + 1, size + 2});
        } else if (!whole.starts_with(answer.text)) {
            examination.fail(what + ", is " + inQuotes(answer.text) + " instead of " + inQuotes(whole));
        } else if (isRoomy && answer.text != whole) {
            examination.fail(what + ", isn't delivered whole, although it fits: it has " +
                             std::to_string(whole.size()));
        }
    }
    if (whole.empty()) {
        examination.find(request.required ? Verdict::fail : Verdict::note, label + " is empty");
    }
}

void examineOptionsText(const Examination& examination, std::u16string_view options)
{
    // What may stand at each position: the ID; "1"; whether the plug-in can be configured; "n" for new style functions;
    // whether it wants start-up and shut-down, idle, and session and file shut-down messages; "n".
    constexpr std::u16string_view id; // visible ASCII
    constexpr std::array<std::u16string_view, 11> allowed{id, id, id, id, u"1", u"Yn", u"n", u"Yn", u"Yn", u"Yn", u"n"};
    if (options.size() != allowed.size()) {
        examination.fail("the options string " + inQuotes(options) + " has " + std::to_string(options.size()) +
                         " characters instead of " + std::to_string(allowed.size()));
        return;
    }
    for (std::size_t index = 0; index < allowed.size(); ++index) {
        const std::u16string_view expected = allowed.at(index);
        const char16_t unit = options[index];
        examination.expect(expected.empty() ? unit > u' ' && unit <= u'~' : expected.find(unit) != expected.npos,
                           "character " + std::to_string(index + 1) + " of the options string " + inQuotes(options) +
                               " is " + inQuotes(options.substr(index, 1)) +
                               "; expected: " + (expected.empty() ? "visible ASCII" : "one of " + inQuotes(expected)));
    }
}

template <typename Entry>
void examineIdOf(const Examination& examination, const std::vector<Entry>& entries, Plugin& plugin)
{
    for (const Entry& entry : entries) {
        std::u16string id;
        for (int shift = 24; shift >= 0; shift -= 8) {
            id.push_back(static_cast<char16_t>(entry.pluginId >> shift & 0xFF));
        }
        const std::u16string expected = plugin.options().substr(0, id.size());
        examination.expect(id == expected || expected.size() < id.size(), // of too short a text others tell
                           nameOf(entry) + " is registered under the ID " + inQuotes(id) +
                               ", the options string says " + inQuotes(expected));
    }
}

} // namespace

std::string inQuotes(std::u16string_view text)
{
    constexpr std::size_t shown = 200;
    return "\"" + toUtf8(text.substr(0, shown)) + (text.size() > shown ? "…\"" : "\"");
}

void examineStrings(Examination& examination)
{
    Plugin& plugin = examination.loaded();
    for (const Request& request : requests) {
        examineString(examination, plugin, request);
    }
}

void examineOptions(Examination& examination)
{
    examineOptionsText(examination, examination.loaded().options());
    Plugin& plugin = examination.started();
    examineIdOf(examination, fmxkit::externalFunctions(), plugin);
    examineIdOf(examination, fmxkit::scriptSteps(), plugin);
}

} // namespace fmxhost::check
