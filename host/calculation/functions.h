// The functions that a calculation may call: those of a plug-in, and as many of FileMaker's own as scripts around them
// need.
#pragma once

#include "host/base/value.h"

#include <fmxkit/registry.h>

#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace fmxhost {

struct BuiltIn {
    constexpr BuiltIn(std::u16string_view prototypeText, std::u16string_view descriptionText, int minimum, int maximum,
                      Value (*function)(const std::vector<Value>& arguments))
        : name(prototypeText.substr(0, prototypeText.find(u' '))), prototype(prototypeText),
          description(descriptionText), minimumArguments(minimum), maximumArguments(maximum), evaluate(function)
    {
    }
    std::u16string_view name;
    std::u16string_view prototype;
    std::u16string_view description;
    int minimumArguments;
    int maximumArguments;
    Value (*evaluate)(const std::vector<Value>& arguments); // null: the parser makes a form of its own of it
};

// In alphabetical order.
std::span<const BuiltIn> builtIns();

// What answers Get ( flag ), a function without arguments, in any letter case; null for a flag that isn't known.
const BuiltIn* getFunction(std::u16string_view flag);

// Whether FileMaker has a function of that name, in any letter case, that the host lacks.
bool isFileMakersFunction(std::u16string_view name);

using Function = std::variant<const BuiltIn*, const fmxkit::ExternalFunction*>;

constexpr int anyNumberOfArguments = std::numeric_limits<int>::max();

std::u16string_view nameOf(const Function& function);
std::u16string_view prototypeOf(const Function& function);
std::u16string_view descriptionOf(const Function& function); // without the words to find it by, see descriptionText()
int minimumArguments(const Function& function);
int maximumArguments(const Function& function); // anyNumberOfArguments where there is no limit

// A description without the type-ahead words before its "|".
std::u16string_view descriptionText(std::u16string_view description);

// The candidate that was probably meant by a word, or an empty one. Letter case doesn't count, nor does a prefix that
// ends with an underscore.
std::u16string nearest(std::u16string_view word, const std::vector<std::u16string_view>& candidates);

// " Did you mean x?", or nothing for an empty suggestion; UTF-8.
std::string didYouMean(std::u16string_view suggestion);

// Immutable once made.
class FunctionTable {
public:
    // The functions must stay where they are as long as the table is used.
    explicit FunctionTable(const std::vector<fmxkit::ExternalFunction>& functions);

    // In any letter case; a built-in function hides a plug-in's function of the same name.
    std::optional<Function> find(std::u16string_view name) const;

    // The name that was probably meant, or an empty one.
    std::u16string suggestionFor(std::u16string_view name) const;

    // Those whose name begins so, or that have the word in their name or description, in any letter case: the plug-in's
    // in the order of registration, then the built-in ones.
    std::vector<Function> withPrefix(std::u16string_view prefix) const;
    std::vector<Function> about(std::u16string_view word) const;

private:
    std::vector<Function> functions_;
    std::map<std::u16string, Function> byFoldedName_;
};

} // namespace fmxhost
