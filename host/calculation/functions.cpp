#include "host/calculation/functions.h"

#include "host/unicode.h"

#include <algorithm>
#include <numeric>

namespace fmxhost {
namespace {

// Without the prefix that all functions of a plug-in share, which says nothing about which one is meant.
std::u16string_view withoutPrefix(std::u16string_view name)
{
    const std::size_t underscore = name.find(u'_');
    return underscore == std::u16string_view::npos ? name : name.substr(underscore + 1);
}

} // namespace

std::size_t editDistance(std::u16string_view a, std::u16string_view b)
{
    std::vector<std::size_t> beforePrevious;
    std::vector<std::size_t> previous(b.size() + 1);
    std::iota(previous.begin(), previous.end(), std::size_t{0});
    for (std::size_t row = 1; row <= a.size(); ++row) {
        std::vector<std::size_t> current(b.size() + 1, row);
        for (std::size_t column = 1; column <= b.size(); ++column) {
            const std::size_t substituted = previous[column - 1] + (a[row - 1] == b[column - 1] ? 0 : 1);
            current[column] = std::min({previous[column] + 1, current[column - 1] + 1, substituted});
            const bool swapped = row > 1 && column > 1 && a[row - 1] == b[column - 2] && a[row - 2] == b[column - 1];
            if (swapped) {
                current[column] = std::min(current[column], beforePrevious[column - 2] + 1);
            }
        }
        beforePrevious = std::move(previous);
        previous = std::move(current);
    }
    return previous.back();
}

std::u16string_view nameOf(const Function& function)
{
    return std::visit([](const auto* entry) { return std::u16string_view(entry->name); }, function);
}

int minimumArguments(const Function& function)
{
    return std::visit([](const auto* entry) { return static_cast<int>(entry->minimumArguments); }, function);
}

int maximumArguments(const Function& function)
{
    const int maximum =
        std::visit([](const auto* entry) { return static_cast<int>(entry->maximumArguments); }, function);
    return maximum < 0 ? anyNumberOfArguments : maximum;
}

FunctionTable::FunctionTable(const std::vector<fmxkit::ExternalFunction>& functions)
{
    for (const BuiltIn& builtIn : builtIns()) {
        byFoldedName_.emplace(foldCase(builtIn.name), &builtIn);
    }
    for (const fmxkit::ExternalFunction& function : functions) {
        functions_.emplace_back(&function);
        byFoldedName_.emplace(foldCase(function.name), &function);
    }
    for (const BuiltIn& builtIn : builtIns()) {
        functions_.emplace_back(&builtIn);
    }
}

std::optional<Function> FunctionTable::find(std::u16string_view name) const
{
    const auto found = byFoldedName_.find(foldCase(name));
    return found != byFoldedName_.end() ? std::optional(found->second) : std::nullopt;
}

std::u16string FunctionTable::suggestionFor(std::u16string_view name) const
{
    constexpr std::size_t longestName = 200;
    if (name.size() > longestName) {
        return {};
    }
    const std::u16string given = foldCase(name);
    std::u16string_view best;
    std::size_t bestDistance = std::max<std::size_t>(1, withoutPrefix(given).size() / 3) + 1;
    for (const Function& function : functions_) {
        const std::u16string folded = foldCase(nameOf(function));
        const std::size_t distance =
            std::min(editDistance(given, folded), editDistance(withoutPrefix(given), withoutPrefix(folded)));
        if (distance < bestDistance) {
            best = nameOf(function);
            bestDistance = distance;
        }
    }
    return std::u16string(best);
}

std::vector<std::u16string_view> FunctionTable::namesWithPrefix(std::u16string_view prefix) const
{
    const std::u16string folded = foldCase(prefix);
    std::vector<std::u16string_view> names;
    for (const Function& function : functions_) {
        if (foldCase(nameOf(function)).starts_with(folded)) {
            names.push_back(nameOf(function));
        }
    }
    return names;
}

} // namespace fmxhost
