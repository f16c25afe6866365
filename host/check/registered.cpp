// function-names, prototypes, descriptions, unique-ids: what it registers for calculations.
#include "host/check/test.h"

#include "host/calculation/functions.h"

#include <algorithm>
#include <map>
#include <regex>

namespace fmxhost::check {
namespace {

using fmxkit::ExternalFunction;

std::vector<ExternalFunction> attemptedFunctions()
{
    return attempted(fmxkit::externalFunctions(), fmxkit::refusals().functions);
}

constexpr std::u16string_view blanks = u" \t\r\n\u00a0";

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

// What a prototype has behind the name: "(p;p{;p*})" for "( source ; target {; more… } )".
std::string shapeOf(std::u16string_view parameters)
{
    std::string shape;
    for (; !parameters.empty(); parameters.remove_prefix(parameters.starts_with(u"...") ? 3 : 1)) {
        const char16_t unit = parameters.front();
        if (unit == u'…' || parameters.starts_with(u"...")) {
            shape += '*';
        } else if (std::u16string_view(u"(){};").find(unit) != std::u16string_view::npos) {
            shape += static_cast<char>(unit);
        } else if (blanks.find(unit) == std::u16string_view::npos && !shape.ends_with('p')) {
            shape += 'p';
        }
    }
    return shape;
}

// What is wrong with a prototype; "" when nothing is. A list stands in parentheses, is separated by ";", and has what
// may be left out in braces, which may be nested.
std::string prototypeFault(const ExternalFunction& function)
{
    static const std::regex list(R"(|\(\)|\((p\*?|\*)(;(p\*?|\*))*\))");
    const std::u16string_view prototype = function.prototype;
    if (!prototype.starts_with(function.name)) {
        return "it doesn't begin with the function's name";
    }
    std::string shape = shapeOf(prototype.substr(function.name.size()));
    int depth = 0;
    int required = 0;
    for (std::size_t index = 0; index < shape.size() && depth >= 0; ++index) {
        depth += shape[index] == '{' ? 1 : shape[index] == '}' ? -1 : 0;
        required += shape[index] == 'p' && depth == 0 ? 1 : 0;
    }
    if (depth != 0) {
        return "its braces don't match";
    }
    std::erase_if(shape, [](char mark) { return mark == '{' || mark == '}'; });
    if (!std::regex_match(shape, list)) {
        return "what follows the name isn't a list such as ( a ; b {; c } )";
    }
    const auto named = static_cast<int>(std::count(shape.begin(), shape.end(), 'p'));
    const bool more = shape.find('*') != std::string::npos;
    // A prototype may say "and so on" for many that are counted all the same.
    const bool agrees = more ? function.maximumArguments == -1 || function.maximumArguments >= named
                             : function.maximumArguments == named;
    const std::string has = rangeText(required, more ? -1 : named);
    return agrees && required == function.minimumArguments
               ? ""
               : "it has " + has + (has == "1" ? " parameter" : " parameters") + " but is registered with " +
                     rangeText(function.minimumArguments, function.maximumArguments);
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
        examination.expect(canBeCalled(function.name), shown + ": a calculation can't take this for a name");
        const std::string& first = firstOfName.emplace(foldCase(function.name), shown).first->second;
        examination.expect(first == shown, std::string(shown).append(" has the name of ").append(first));
    }
    if (attemptedFunctions().empty()) {
        examination.find(Verdict::note, "it registers no functions");
    }
}

void examinePrototypes(Examination& examination)
{
    examination.started();
    for (const ExternalFunction& function : attemptedFunctions()) {
        const std::string shown = nameOf(function);
        examination.expect(function.handler != nullptr, shown + " is registered without a function to call");
        if (function.prototype.empty()) {
            examination.fail(shown + " has no prototype");
        } else if (!function.name.empty()) { // of that function-names tells
            const std::string fault = prototypeFault(function);
            const std::string quoted = ": the prototype " + inQuotes(function.prototype) + ": ";
            examination.expect(fault.empty(), std::string(shown).append(quoted).append(fault));
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
            continue;
        }
        examination.expect(description.find_first_not_of(blanks, begin) != std::u16string_view::npos,
                           nameOf(function) + ": there is no text" + (begin > 0 ? " behind \"|\"" : "") +
                               " in the description " + inQuotes(description));
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
