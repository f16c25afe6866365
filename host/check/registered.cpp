// function-names, prototypes, descriptions, unique-ids: what it registers for calculations.
#include "host/check/test.h"

#include "host/calculation/functions.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

namespace fmxhost::check {
namespace {

using fmxkit::ExternalFunction;

std::vector<ExternalFunction> attemptedFunctions()
{
    return attempted(fmxkit::externalFunctions(), fmxkit::refusals().functions);
}

std::u16string_view trimmed(std::u16string_view text)
{
    constexpr std::u16string_view blanks = u" \t\r\n\u00a0";
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
    if (rest.empty()) {
        return counts;
    }
    expect(rest.front() == u'(', "something other than \"(\" follows the name");
    int depth = 0;
    int sinceSeparator = 0; // parameters
    int separators = 0;
    for (char16_t mark = u'('; mark != u')';) {
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
        depth += mark == u'{' ? 1 : mark == u'}' ? -1 : 0;
        expect(depth >= 0, "it closes a brace that isn't open");
        if (mark == u';') {
            ++separators;
            expect(std::exchange(sinceSeparator, 0) != 0, "it has a \";\" with no parameter before it");
        }
    }
    expect(depth == 0, "it has a brace that isn't closed");
    expect(separators == 0 || sinceSeparator != 0, "it has a \";\" with no parameter behind it");
    expect(rest.size() == 1, "something follows its closing parenthesis");
    return counts;
}

// What is wrong with a prototype; "" when nothing is.
std::string prototypeFault(const ExternalFunction& function)
{
    const std::u16string_view prototype = function.prototype;
    if (!prototype.starts_with(function.name)) {
        return "it doesn't begin with the function's name";
    }
    try {
        const auto [required, named, more] = readParameters(trimmed(prototype.substr(function.name.size())));
        // A prototype may say "and so on" for many that are counted all the same.
        const bool agrees = more ? function.maximumArguments == -1 || function.maximumArguments >= named
                                 : function.maximumArguments == named;
        const std::string has = rangeText(required, more ? -1 : named);
        return agrees && required == function.minimumArguments
                   ? ""
                   : "it has " + has + (has == "1" ? " parameter" : " parameters") + " but is registered with " +
                         rangeText(function.minimumArguments, function.maximumArguments);
    } catch (const std::invalid_argument& error) {
        return error.what();
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
        if (function.handler == nullptr) {
            examination.fail(nameOf(function) + " is registered without a function to call");
        }
        // Without a name, of which function-names tells, there is nothing to begin with.
        if (function.prototype.empty()) {
            examination.fail(nameOf(function) + " has no prototype");
        } else if (const std::string fault = prototypeFault(function); !function.name.empty() && !fault.empty()) {
            examination.fail(nameOf(function) + ": the prototype " + inQuotes(function.prototype) + ": " + fault);
        }
    }
}

void examineDescriptions(Examination& examination)
{
    constexpr std::int16_t descriptionsSince = 56;
    if (examination.options().apiVersion < descriptionsSince) {
        throw Skipped("functions have descriptions from API version 56 on");
    }
    examination.started();
    for (const ExternalFunction& function : attemptedFunctions()) {
        const std::u16string_view description = function.description;
        const std::size_t begin = description.find(u'|') + 1; // behind the words by which it is found; npos + 1: 0
        if (description.empty()) {
            examination.fail(nameOf(function) + " has no description");
        } else if (trimmed(description.substr(begin)).empty()) {
            examination.fail(nameOf(function) + ": there is no text" + (begin > 0 ? " behind \"|\"" : "") +
                             " in the description " + inQuotes(description));
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
