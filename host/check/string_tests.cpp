// strings, options: what the plug-in says about itself.
#include "host/check/naming.h"
#include "host/check/tests.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>

namespace fmxhost::check {
namespace {

constexpr std::uint32_t usualCapacity = 1024;

// Guards on both sides of the buffer. The one behind is larger than any answer that ignores its capacity.
constexpr std::size_t guardBefore = 64;
constexpr std::size_t guardBehind = std::size_t{64} * 1024;
constexpr char16_t guard = 0xE5A7; // of the private use area: no text of a plug-in's

struct Answer {
    std::u16string text; // up to its zero, or to the capacity
    bool terminated = false;
    bool untouched = false;
    bool overrun = false; // it wrote outside of the buffer
};

Answer ask(Plugin& plugin, std::uint8_t number, std::uint32_t capacity)
{
    std::u16string buffer(guardBefore + capacity + guardBehind, guard);
    char16_t* const begin = buffer.data() + guardBefore;
    plugin.send(Message::stringRequest, number, 0, capacity, reinterpret_cast<fmx::ptrtype>(begin));

    const auto isGuard = [](char16_t unit) { return unit == guard; };
    Answer answer;
    answer.overrun = !std::all_of(buffer.begin(), buffer.begin() + guardBefore, isGuard) ||
                     !std::all_of(buffer.end() - guardBehind, buffer.end(), isGuard);
    const std::u16string_view inside(begin, capacity);
    answer.untouched = std::all_of(inside.begin(), inside.end(), isGuard);
    answer.terminated = inside.find(u'\0') != std::u16string_view::npos;
    answer.text = inside.substr(0, inside.find(u'\0'));
    return answer;
}

std::string capacityText(std::uint32_t capacity)
{
    return "a buffer of " + std::to_string(capacity) + (capacity == 1 ? " unit" : " units");
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

std::string labelOf(const Request& request)
{
    return "string " + std::to_string(static_cast<int>(request.number)) + " (" + std::string(request.name) + ")";
}

std::uint8_t numberOf(const Request& request)
{
    return static_cast<std::uint8_t>(request.number);
}

// What is wrong with how an answer lies in its buffer.
std::optional<std::string> misplacement(const Answer& answer)
{
    if (answer.overrun) {
        return "is written beyond it";
    }
    if (!answer.terminated) {
        return answer.untouched ? "isn't answered: not even a terminating zero is written"
                                : "fills it without a terminating zero";
    }
    return std::nullopt;
}

// The string in buffers of other sizes: whole, cut or dropped, but never beyond them. One that is too small may also be
// left as it is: FileMaker's are large enough.
void examineCapacities(const Examination& examination, Plugin& plugin, const Request& request,
                       const std::u16string& whole)
{
    const auto length = static_cast<std::uint32_t>(whole.size());
    // A buffer in which one unit stays free beside the zero holds the text in any way of counting.
    const std::uint32_t roomy = length + 2;
    for (const std::uint32_t capacity : std::set<std::uint32_t>{1, 2, 3, 8, 64, length, length + 1, roomy}) {
        if (capacity == 0) {
            continue;
        }
        const std::string what = labelOf(request) + ", asked for with " + capacityText(capacity) + ", ";
        examination.step("the request for " + labelOf(request) + " with " + capacityText(capacity));
        const Answer answer = ask(plugin, numberOf(request), capacity);
        if (capacity < roomy && answer.untouched && !answer.overrun) {
            continue;
        }
        if (const auto misplaced = misplacement(answer)) {
            examination.fail(what + *misplaced);
            return;
        }
        if (!whole.starts_with(answer.text)) {
            examination.fail(what + "is " + inQuotes(answer.text) + " instead of " + inQuotes(whole));
        } else if (capacity >= roomy && answer.text != whole) {
            examination.fail(what + "isn't delivered whole, although it fits: it has " + std::to_string(length));
        }
    }
}

void examineString(const Examination& examination, Plugin& plugin, const Request& request)
{
    examination.step("the request for " + labelOf(request));
    const Answer answer = ask(plugin, numberOf(request), usualCapacity);
    if (const auto misplaced = misplacement(answer)) {
        examination.fail(labelOf(request) + ", asked for with " + capacityText(usualCapacity) + ", " + *misplaced);
        return;
    }
    if (answer.text.empty() && request.required) {
        examination.fail(labelOf(request) + " is empty");
    } else if (answer.text.empty()) {
        examination.note(labelOf(request) + " is empty");
    }
    examineCapacities(examination, plugin, request, answer.text);
}

void examineOtherNumbers(const Examination& examination, Plugin& plugin)
{
    constexpr std::uint32_t capacity = 16;
    std::map<std::string, std::vector<unsigned>> numbersByFault;
    for (unsigned number = 0; number <= 255; ++number) {
        const bool known = std::any_of(requests.begin(), requests.end(),
                                       [number](const Request& request) { return numberOf(request) == number; });
        if (known) {
            continue;
        }
        examination.step("a request for string " + std::to_string(number));
        const Answer answer = ask(plugin, static_cast<std::uint8_t>(number), capacity);
        if (const auto misplaced = misplacement(answer); misplaced && (answer.overrun || !answer.untouched)) {
            numbersByFault[*misplaced].push_back(number);
        }
    }
    for (const auto& [fault, numbers] : numbersByFault) {
        examination.fail("string " + numbersText(numbers) + ", asked for with " + capacityText(capacity) + ", " +
                         fault);
    }
}

// What may stand at each position of the options string, and what it means.
struct Option {
    std::u16string_view allowed;
    std::string_view meaning;
};
constexpr std::size_t idLength = 4;
constexpr std::array<Option, 7> optionsAfterId{{{u"1", "always \"1\""},
                                                {u"Yn", "\"Y\" when the plug-in can be configured, else \"n\""},
                                                {u"n", "\"n\": new style functions"},
                                                {u"Yn", "\"Y\" for start-up and shut-down messages, else \"n\""},
                                                {u"Yn", "\"Y\" for idle messages, else \"n\""},
                                                {u"Yn", "\"Y\" for session and file shut-down messages, else \"n\""},
                                                {u"n", "always \"n\""}}};

void examineOptionsText(const Examination& examination, std::u16string_view options)
{
    constexpr std::size_t length = idLength + optionsAfterId.size();
    if (options.size() != length) {
        examination.fail("the options string " + inQuotes(options) + " has " + std::to_string(options.size()) +
                         " characters instead of " + std::to_string(length));
        return;
    }
    for (std::size_t index = 0; index < length; ++index) {
        const char16_t unit = options[index];
        const bool inId = index < idLength;
        const bool right = inId ? unit > u' ' && unit <= u'~'
                                : optionsAfterId[index - idLength].allowed.find(unit) != std::u16string_view::npos;
        if (!right) {
            const std::string_view expected = inId ? std::string_view("a visible ASCII character of the ID")
                                                   : optionsAfterId[index - idLength].meaning;
            examination.fail("character " + std::to_string(index + 1) + " of the options string " + inQuotes(options) +
                             " is " + inQuotes(options.substr(index, 1)) + "; expected: " + std::string(expected));
        }
    }
}

template <class Entry>
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
    examineOtherNumbers(examination, plugin);
    examination.step("");
}

void examineOptions(Examination& examination)
{
    examineOptionsText(examination, examination.loaded().options());
    const Plugin& plugin = examination.started();
    if (plugin.id() == 0) {
        return; // too short a text, which is reported above
    }
    examineIdOf(examination, fmxkit::externalFunctions(), plugin.id());
    examineIdOf(examination, fmxkit::scriptSteps(), plugin.id());
}

} // namespace fmxhost::check
