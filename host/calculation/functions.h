// What a calculation may use: operators, the functions of a plug-in, and as many of FileMaker's own as scripts around
// them need.
#pragma once

#include "host/base/value.h"
#include "host/calculation/source.h"

#include <fmxkit/registry.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fmxhost {

struct Operator {
    std::u16string_view symbol;
    int level;                     // of binding, weakest first
    std::optional<bool> decidedBy; // the left operand that is the result whatever stands on the right
    Value (*apply)(const Value& left, const Value& right); // Errors: NoResult
};
constexpr int strongestLevel = 6;
const Operator* findOperator(std::u16string_view symbol); // null for none

using Arguments = std::vector<Value>;
using BuiltIn = std::function<Value(const Arguments& arguments)>; // Errors: NoResult

struct Function {
    // One of FileMaker's. Its prototype begins with its name. The parser makes a form of its own of one without code.
    Function(std::u16string_view itsPrototype, int least, int most, BuiltIn function = nullptr,
             std::u16string_view itsDescription = {})
        : name(itsPrototype.substr(0, itsPrototype.find(u' '))), prototype(itsPrototype), description(itsDescription),
          minimumArguments(least), maximumArguments(most), evaluate(std::move(function))
    {
    }
    // A plug-in's, which must stay where it is.
    explicit Function(const fmxkit::ExternalFunction& function)
        : name(function.name), prototype(function.prototype), description(function.description),
          minimumArguments(function.minimumArguments), maximumArguments(function.maximumArguments), external(&function)
    {
    }

    std::u16string_view name;
    std::u16string_view prototype;
    std::u16string_view description; // of a plug-in's function, behind the words to find it by and a "|"; may be empty
    int minimumArguments;
    int maximumArguments; // a negative one: any number
    BuiltIn evaluate;
    const fmxkit::ExternalFunction* external = nullptr;
};

// How many arguments there may be: "1", "2 to 4"; "1 or more" when the most is negative.
std::string rangeText(int least, int most);

// FileMaker's, in alphabetical order.
const std::vector<Function>& builtIns();

// Whether FileMaker has such a function, or such a flag, "Get ( flag )", but the host doesn't. In any letter case.
bool isLacking(std::u16string_view name);

// What Get ( flag ) returns, in any letter case; empty for a flag that isn't known.
std::optional<Value> stateOf(std::u16string_view flag);

// What is to be said about a flag that stateOf() doesn't know, for the user; UTF-8.
std::string unknownStateText(std::u16string_view flag);

// " Did you mean x?" of the candidate that was probably meant by a word, or nothing. Letter case doesn't count, nor
// does a prefix that ends with an underscore. All UTF-8.
std::string suggestion(std::string_view word, const std::vector<std::string>& candidates);

// Immutable once made.
class FunctionTable {
public:
    // The functions must stay where they are as long as the table is used.
    explicit FunctionTable(const std::vector<fmxkit::ExternalFunction>& functions);
    FunctionTable(const FunctionTable&) = delete;
    FunctionTable& operator=(const FunctionTable&) = delete;

    // The plug-in's in the order of registration, then FileMaker's.
    const std::vector<Function>& all() const { return functions_; }

    // In any letter case, or null; a function of FileMaker's hides a plug-in's of the same name.
    const Function* find(std::u16string_view name) const;

    // What is to be said about a name that find() doesn't know, for the user; UTF-8.
    std::string unknownText(std::u16string_view name, std::string_view kind = "function") const;

private:
    std::vector<Function> functions_;
    std::map<std::u16string, const Function*> byFoldedName_;
};

} // namespace fmxhost
