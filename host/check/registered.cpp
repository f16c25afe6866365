// function-names, prototypes, descriptions, unique-ids: what it registers for calculations.
#include "host/check/test.h"

#include "host/calculation/source.h"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace fmxhost::check {
namespace {

using fmxkit::ExternalFunction;

std::vector<ExternalFunction> attemptedFunctions()
{
    return attempted(fmxkit::externalFunctions(), fmxkit::refusals().functions);
}

constexpr std::u16string_view blanks = u" \t\r\n\u00a0";

std::u16string_view trimmed(std::u16string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// Whether a calculation that consists of it reads it as one name.
bool canBeCalled(const std::u16string& name)
{
    try {
        const std::vector<Token> tokens = tokenize(name);
        return tokens.size() == 2 && tokens.front().kind == TokenKind::name && tokens.front().text == name;
    } catch (const CalculationError&) {
        return false;
    }
}

struct ParameterCounts {
    int required = 0;  // those outside of braces
    int named = 0;     // all of them
    bool more = false; // "..." or "…": any number of them
};

void expect(bool condition, const char* fault)
{
    if (!condition) {
        throw std::invalid_argument(fault); // a prototype that can't be read
    }
}

void count(ParameterCounts& counts, std::u16string_view parameter, bool optional)
{
    for (const std::u16string_view ellipsis : {u"...", u"…"}) {
        if (parameter.ends_with(ellipsis)) {
            parameter = trimmed(parameter.substr(0, parameter.size() - ellipsis.size()));
            counts.more = true;
        }
    }
    counts.named += parameter.empty() ? 0 : 1;
    counts.required += parameter.empty() || optional ? 0 : 1;
}

// What follows the name of a prototype: nothing, or a list in parentheses, separated by ";", optional parameters in
// braces, which may be nested: "( source ; target {; overwrite {; name}} )".
// Errors: std::invalid_argument.
ParameterCounts readParameters(std::u16string_view rest)
{
    ParameterCounts counts;
    rest = trimmed(rest);
    if (rest.empty()) {
        return counts;
    }
    expect(rest.front() == u'(', "something other than \"(\" follows the name");
    int depth = 0;
    int sinceSeparator = 0; // parameters
    bool separated = false;
    for (char16_t mark = rest.front(); mark != u')';) {
        rest.remove_prefix(1);
        const std::size_t end = rest.find_first_of(u"(){};");
        expect(end != std::u16string_view::npos, "it has no closing parenthesis");
        mark = rest[end];
        if (const std::u16string_view parameter = trimmed(rest.substr(0, end)); !parameter.empty()) {
            expect(++sinceSeparator == 1, "it has two parameters without \";\" between them");
            count(counts, parameter, depth > 0);
        }
        rest.remove_prefix(end);
        expect(mark != u'(', "it has a parenthesis within a parenthesis");
        if (mark == u'{') {
            ++depth;
        } else if (mark == u'}') {
            expect(--depth >= 0, "it closes a brace that isn't open");
        } else if (mark == u';') {
            expect(sinceSeparator != 0, "it has a \";\" with no parameter before it");
            sinceSeparator = 0;
            separated = true;
        }
    }
    expect(depth == 0, "it has a brace that isn't closed");
    expect(!separated || sinceSeparator != 0, "it has a \";\" with no parameter behind it");
    expect(rest.size() == 1, "something follows its closing parenthesis");
    return counts;
}

// "1", "2 to 4", "1 or more".
std::string rangeText(int least, int most, bool more)
{
    return std::to_string(least) + (more ? " or more" : most != least ? " to " + std::to_string(most) : "");
}

bool agree(const ParameterCounts& counts, const ExternalFunction& function)
{
    // A prototype may say "and so on" for many that are counted all the same.
    const bool most = counts.more ? function.maximumArguments == -1 || function.maximumArguments >= counts.named
                                  : function.maximumArguments == counts.named;
    return most && counts.required == function.minimumArguments;
}

// What is wrong with the prototype: the rest of a sentence that begins with the function; "" when nothing is.
std::string prototypeFault(const ExternalFunction& function)
{
    const std::u16string_view prototype = function.prototype;
    const std::string shown = ": the prototype " + inQuotes(prototype) + ": ";
    if (prototype.empty()) {
        return " has no prototype";
    }
    if (!prototype.starts_with(function.name)) {
        return shown + "it doesn't begin with the function's name";
    }
    try {
        const ParameterCounts counts = readParameters(prototype.substr(function.name.size()));
        if (agree(counts, function)) {
            return "";
        }
        const std::string has = rangeText(counts.required, counts.named, counts.more);
        return shown + "it has " + has + (has == "1" ? " parameter" : " parameters") + " but is registered with " +
               rangeText(function.minimumArguments, function.maximumArguments, function.maximumArguments == -1);
    } catch (const std::invalid_argument& error) {
        return shown + error.what();
    }
}

template <typename Entry>
void examineIdsOf(const Examination& examination, const std::vector<Entry>& registered,
                  const std::vector<Entry>& refused)
{
    for (const Entry& entry : refused) {
        const auto first = std::find_if(registered.begin(), registered.end(), [&entry](const Entry& other) {
            return other.pluginId == entry.pluginId && other.id == entry.id;
        });
        if (first != registered.end()) {
            examination.fail(nameOf(entry) + " has the ID of " + nameOf(*first));
        }
    }
}

} // namespace

void examineFunctionNames(Examination& examination)
{
    examination.started();
    std::map<std::u16string, std::string> firstOfName;
    for (const ExternalFunction& function : attemptedFunctions()) {
        const std::string shown = nameOf(function);
        if (function.name.empty()) {
            examination.fail(shown + " has no name");
            continue;
        }
        if (!canBeCalled(function.name)) {
            examination.fail(shown + ": a calculation can't take this for a name");
        }
        const auto [first, isNew] = firstOfName.emplace(foldCase(function.name), shown);
        if (!isNew && first->second != shown) {
            examination.fail(shown + " has the name of " + first->second);
        }
    }
    if (attemptedFunctions().empty()) {
        examination.note("it registers no functions");
    }
}

void examinePrototypes(Examination& examination)
{
    examination.started();
    for (const ExternalFunction& function : attemptedFunctions()) {
        // Without a name, of which function-names tells, there is nothing to begin with.
        if (const std::string fault = prototypeFault(function); !function.name.empty() && !fault.empty()) {
            examination.fail(nameOf(function) + fault);
        }
        if (function.handler == nullptr) {
            examination.fail(nameOf(function) + " is registered without a function to call");
        }
    }
}

void examineDescriptions(Examination& examination)
{
    constexpr std::int16_t descriptionsSince = 56;
    if (examination.settings().apiVersion < descriptionsSince) {
        throw Skipped("functions have descriptions from API version 56 on");
    }
    examination.started();
    for (const ExternalFunction& function : attemptedFunctions()) {
        const std::u16string_view description = function.description;
        const std::size_t bar = description.find(u'|'); // behind the words by which it is found
        if (description.empty()) {
            examination.fail(nameOf(function) + " has no description");
        } else if (trimmed(description.substr(bar + 1)).empty()) { // npos + 1: from the start
            examination.fail(nameOf(function) +
                             (bar != std::u16string_view::npos ? ": nothing follows the words before \"|\" in "
                                                               : ": there is nothing but blanks in the description ") +
                             inQuotes(description));
        }
    }
}

void examineIds(Examination& examination)
{
    examination.started();
    const fmxkit::Refusals refused = fmxkit::refusals();
    examineIdsOf(examination, fmxkit::externalFunctions(), refused.functions);
    examineIdsOf(examination, fmxkit::scriptSteps(), refused.scriptSteps);
}

} // namespace fmxhost::check
