// The functions that a calculation may call: those of a plug-in, and the few built-in ones that scripts around them
// need.
#pragma once

#include "host/value.h"

#include <fmxkit/registry.h>

#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace fmxhost {

struct BuiltIn {
    std::u16string_view name;
    std::u16string_view prototype;
    std::u16string_view description;
    int minimumArguments;
    int maximumArguments;
    Value (*evaluate)(const std::vector<Value>& arguments); // null: the parser makes a form of its own of it
};

// In alphabetical order.
const std::vector<BuiltIn>& builtIns();

using Function = std::variant<const BuiltIn*, const fmxkit::ExternalFunction*>;

constexpr int anyNumberOfArguments = std::numeric_limits<int>::max();

std::u16string_view nameOf(const Function& function);
int minimumArguments(const Function& function);
int maximumArguments(const Function& function); // anyNumberOfArguments where there is no limit

// How many insertions, deletions, substitutions and swaps of neighbours make one text of the other (optimal string
// alignment distance), in UTF-16 units. Time and space grow with the product of the lengths.
std::size_t editDistance(std::u16string_view a, std::u16string_view b);

// Thread rule: immutable once made.
class FunctionTable {
public:
    // The functions must stay where they are as long as the table is used.
    explicit FunctionTable(const std::vector<fmxkit::ExternalFunction>& functions);

    // In any letter case; a built-in function hides a plug-in's function of the same name.
    std::optional<Function> find(std::u16string_view name) const;

    // The name that was probably meant, or an empty one.
    std::u16string suggestionFor(std::u16string_view name) const;

    // Names that begin so, in any letter case: the plug-in's in the order of registration, then the built-in ones.
    std::vector<std::u16string_view> namesWithPrefix(std::u16string_view prefix) const;

private:
    std::vector<Function> functions_;
    std::map<std::u16string, Function> byFoldedName_;
};

} // namespace fmxhost
