// function-names, prototypes, descriptions, unique-ids: what it registers for calculations.
#include "host/check/naming.h"
#include "host/check/prototype.h"
#include "host/check/tests.h"

#include "host/calculation/parse.h"
#include "host/calculation/parse.h"
#include "host/calculation/functions.h"
#include "host/base/unicode.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

namespace fmxhost::check {
namespace {

using fmxkit::ExternalFunction;

constexpr std::int16_t descriptionsSince = 56;
constexpr std::u16string_view blanks = u" \t\r\n\u00a0";

// All that it tries to register, those that the host refuses included.
std::vector<ExternalFunction> attemptedFunctions()
{
    std::vector<ExternalFunction> functions = fmxkit::externalFunctions();
    const std::vector<ExternalFunction> refused = fmxkit::refusals().functions;
    functions.insert(functions.end(), refused.begin(), refused.end());
    return functions;
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

std::string registeredCounts(const ExternalFunction& function)
{
    std::string minimum = std::to_string(function.minimumArguments);
    if (function.maximumArguments == function.minimumArguments) {
        return minimum;
    }
    return minimum +
           (function.maximumArguments == -1 ? " or more" : " to " + std::to_string(function.maximumArguments));
}

bool agree(const ParameterCounts& counts, const ExternalFunction& function)
{
    if (counts.required != function.minimumArguments) {
        return false;
    }
    // A prototype may say "and so on" for many that are counted all the same.
    return counts.more ? function.maximumArguments == -1 || function.maximumArguments >= counts.named
                       : function.maximumArguments == counts.named;
}

// What is wrong with the prototype, if anything: the rest of a sentence that begins with the function.
std::optional<std::string> prototypeFault(const ExternalFunction& function)
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
            return std::nullopt;
        }
        return shown + "it has " + countsText(counts) + " but is registered with " + registeredCounts(function);
    } catch (const PrototypeError& error) {
        return shown + error.what();
    }
}

template <class Entry>
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
        const std::string shown = nameOf(function);
        // Without a name, of which function-names tells, there is nothing to begin with.
        const auto fault = function.name.empty() ? std::nullopt : prototypeFault(function);
        if (fault) {
            examination.fail(shown + *fault);
        }
        if (function.handler == nullptr) {
            examination.fail(shown + " is registered without a function to call");
        }
    }
}

void examineDescriptions(Examination& examination)
{
    if (examination.apiVersion() < descriptionsSince) {
        throw Skipped("functions have descriptions from API version 56 on");
    }
    examination.started();
    for (const ExternalFunction& function : attemptedFunctions()) {
        const std::u16string_view description = function.description;
        if (description.empty()) {
            examination.fail(nameOf(function) + " has no description");
        } else if (descriptionText(description).find_first_not_of(blanks) == std::u16string_view::npos) {
            const bool onlyWords = description.find(u'|') != std::u16string_view::npos;
            examination.fail(nameOf(function) +
                             (onlyWords ? ": nothing follows the words before \"|\" in "
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
