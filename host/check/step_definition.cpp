#include "host/check/step_definition.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <type_traits>

namespace fmxhost::check {
namespace {

char lowered(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char character) { return lowered(character); });
    return result;
}

template <std::size_t count>
bool isOneOf(std::string_view text, const std::array<std::string_view, count>& words)
{
    return std::find(words.begin(), words.end(), text) != words.end();
}

constexpr std::array<std::string_view, 4> types{"calc", "bool", "list", "target"};
constexpr std::array<std::string_view, 2> truthValues{"true", "false"};
constexpr std::array<std::string_view, 6> parameterAttributes{"type",  "id",         "datatype",
                                                              "label", "showinline", "default"};

using Attributes = std::map<std::string, std::string>; // names in lower case

class DefinitionReader {
public:
    void begin(std::string_view element, const Attributes& attributes)
    {
        const std::string name = lowered(element);
        const std::string parent = open_.empty() ? "" : open_.back();
        open_.push_back(name);
        if (parent.empty()) {
            expect(name == "pluginstep",
                   "the definition has the root element <" + std::string(element) + "> instead of <PluginStep>");
        } else if (name == "parameter" && parent == "pluginstep") {
            parameter(attributes);
        } else if (name == "value" && parent == "parameter" && type_ == "list") {
            value(attributes);
        } else {
            faults_.push_back("the definition has an element <" + std::string(element) + "> in <" + parent + ">" +
                              (parent == "parameter" ? " of type \"" + type_ + "\"" : "") + " where none is known");
        }
    }

    void end() { open_.pop_back(); }

    std::vector<std::string> takeFaults() { return std::move(faults_); }

private:
    void expect(bool condition, std::string fault)
    {
        if (!condition) {
            faults_.push_back(std::move(fault));
        }
    }

    static std::string valueOf(const Attributes& attributes, const char* name)
    {
        const auto found = attributes.find(name);
        return found != attributes.end() ? found->second : "";
    }

    void parameter(const Attributes& attributes)
    {
        const std::string label = valueOf(attributes, "label");
        shown_ = "parameter " + std::to_string(++count_) + (label.empty() ? "" : " \"" + label + "\"");
        values_.clear();
        for (const auto& [name, value] : attributes) {
            expect(isOneOf(name, parameterAttributes), shown_ + " has an attribute " + name + " that isn't known");
        }
        type_ = lowered(valueOf(attributes, "type"));
        expect(isOneOf(type_, types), shown_ + " is of type \"" + type_ + "\"; known are calc, bool, list and target");
        expect(!label.empty(), shown_ + " has no label");
        if (const auto shownInline = attributes.find("showinline"); shownInline != attributes.end()) {
            expect(isOneOf(lowered(shownInline->second), truthValues),
                   shown_ + ": showinline is \"" + shownInline->second + "\" instead of \"true\" or \"false\"");
        }
        if (type_ == "target") {
            expect(++targets_ != 2, "the definition has more than one target");
        }
        if (type_ != "target" || attributes.contains("id")) {
            id(valueOf(attributes, "id"), ids_, shown_);
        }
    }

    void value(const Attributes& attributes) { id(valueOf(attributes, "id"), values_, "a value of " + shown_); }

    void id(const std::string& id, std::set<std::string>& taken, const std::string& owner)
    {
        const bool isNumber = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
        expect(isNumber, owner + (id.empty() ? " has no ID" : ": its ID \"" + id + "\" is no number"));
        if (isNumber) {
            expect(taken.insert(id).second, owner + ": its ID \"" + id + "\" is taken");
        }
    }

    std::vector<std::string> faults_;
    std::vector<std::string> open_; // element names, the root first
    std::string shown_;             // the current parameter, as faults name it
    std::string type_;              // and its type
    std::set<std::string> values_;  // IDs of its values
    std::set<std::string> ids_;     // of parameters
    int count_ = 0;
    int targets_ = 0;
};

void onStart(void* reader, const char* element, const char** attributes)
{
    Attributes all;
    for (; *attributes != nullptr; attributes += 2) {
        all[lowered(attributes[0])] = attributes[1];
    }
    static_cast<DefinitionReader*>(reader)->begin(element, all);
}

void onEnd(void* reader, const char*)
{
    static_cast<DefinitionReader*>(reader)->end();
}

using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

} // namespace

std::vector<std::string> faultsOfDefinition(const std::string& definition)
{
    const Parser parser(XML_ParserCreate("UTF-8"), &XML_ParserFree);
    if (!parser) {
        throw std::bad_alloc();
    }
    DefinitionReader reader;
    XML_SetUserData(parser.get(), &reader);
    XML_SetElementHandler(parser.get(), onStart, onEnd);
    constexpr int isFinal = 1;
    if (XML_Parse(parser.get(), definition.data(), static_cast<int>(definition.size()), isFinal) == XML_STATUS_ERROR) {
        return {std::string("the definition isn't well-formed XML: ") +
                XML_ErrorString(XML_GetErrorCode(parser.get())) + " at character " +
                std::to_string(XML_GetCurrentByteIndex(parser.get()) + 1)};
    }
    return reader.takeFaults();
}

} // namespace fmxhost::check
