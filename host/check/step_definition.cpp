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
// Of what a calculation in a script step gives; "boolean" stands in older definitions.
constexpr std::array<std::string_view, 8> dataTypes{"text",      "number",    "date",   "time",
                                                    "timestamp", "container", "binary", "boolean"};
constexpr std::array<std::string_view, 4> boolDefaults{"true", "false", "0", "1"};
constexpr std::array<std::string_view, 6> parameterAttributes{"type",  "id",         "datatype",
                                                              "label", "showinline", "default"};
constexpr std::array<std::string_view, 1> valueAttributes{"id"};
constexpr std::array<std::string_view, 0> noAttributes{};

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
            expectOnly(noAttributes, attributes, "<" + std::string(element) + ">");
        } else if (name == "parameter" && parent == "pluginstep") {
            parameter(attributes);
        } else if (name == "value" && parent == "parameter" && type_ == "list") {
            value(attributes);
        } else {
            faults_.push_back("the definition has an element <" + std::string(element) + "> in <" + parent + ">" +
                              (parent == "parameter" ? " of type \"" + type_ + "\"" : "") + " where none is known");
        }
    }

    void text(std::string_view text)
    {
        if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
            return;
        }
        if (open_.back() == "value") {
            hasText_ = true;
        } else if (open_.back() != strayTextIn_) {
            strayTextIn_ = open_.back();
            faults_.push_back("the definition has text in <" + open_.back() + ">, where none is known");
        }
    }

    void end()
    {
        if (open_.back() == "value" && type_ == "list") {
            expect(hasText_, "a value of " + shown_ + " has no text");
        } else if (open_.back() == "parameter") {
            expect(type_ != "list" || valueCount_ > 0, shown_ + " is a list without values");
            type_.clear();
        }
        open_.pop_back();
    }

    std::vector<std::string> takeFaults() { return std::move(faults_); }

private:
    void expect(bool condition, std::string fault)
    {
        if (!condition) {
            faults_.push_back(std::move(fault));
        }
    }

    template <std::size_t count>
    void expectOnly(const std::array<std::string_view, count>& known, const Attributes& attributes,
                    const std::string& owner)
    {
        for (const auto& [name, value] : attributes) {
            expect(isOneOf(name, known),
                   std::string(owner).append(" has an attribute ").append(name).append(" that isn't known"));
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
        valueCount_ = 0;
        expectOnly(parameterAttributes, attributes, shown_);
        type_ = lowered(valueOf(attributes, "type"));
        expect(isOneOf(type_, types), shown_ + " is of type \"" + type_ + "\"; known are calc, bool, list and target");
        expect(!label.empty(), shown_ + " has no label");
        if (const auto shownInline = attributes.find("showinline"); shownInline != attributes.end()) {
            expect(isOneOf(lowered(shownInline->second), truthValues),
                   shown_ + ": showinline is \"" + shownInline->second + "\" instead of \"true\" or \"false\"");
        }
        if (const auto dataType = attributes.find("datatype"); dataType != attributes.end()) {
            expect(isOneOf(lowered(dataType->second), dataTypes),
                   shown_ + " is of data type \"" + dataType->second +
                       "\"; known are text, number, date, time, timestamp and container");
        }
        if (const auto standard = attributes.find("default"); type_ == "bool" && standard != attributes.end()) {
            expect(isOneOf(lowered(standard->second), boolDefaults),
                   shown_ + ": its default is \"" + standard->second + "\" instead of \"true\" or \"false\"");
        }
        if (type_ == "target") {
            expect(++targets_ != 2, "the definition has more than one target");
        }
        if (type_ != "target" || attributes.contains("id")) {
            id(valueOf(attributes, "id"), ids_, shown_);
        }
    }

    void value(const Attributes& attributes)
    {
        ++valueCount_;
        hasText_ = false;
        expectOnly(valueAttributes, attributes, "a value of " + shown_);
        id(valueOf(attributes, "id"), values_, "a value of " + shown_);
    }

    void id(const std::string& id, std::set<std::string>& taken, const std::string& owner)
    {
        const bool isNumber = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
        expect(isNumber, owner + (id.empty() ? " has no ID" : ": its ID \"" + id + "\" is no number"));
        if (isNumber) {
            const std::string digits = id.substr(std::min(id.find_first_not_of('0'), id.size() - 1));
            expect(taken.insert(digits).second, owner + ": its ID \"" + id + "\" is taken");
        }
    }

    std::vector<std::string> faults_;
    std::vector<std::string> open_; // element names, the root first
    std::string shown_;             // the current parameter, as faults name it
    std::string type_;              // and its type
    std::set<std::string> values_;  // IDs of its values
    int valueCount_ = 0;
    bool hasText_ = false;      // the current value
    std::string strayTextIn_;   // the element whose text was found last
    std::set<std::string> ids_; // of parameters
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

void onText(void* reader, const char* text, int length)
{
    static_cast<DefinitionReader*>(reader)->text({text, static_cast<std::size_t>(length)});
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
    XML_SetCharacterDataHandler(parser.get(), onText);
    constexpr int isFinal = 1;
    if (XML_Parse(parser.get(), definition.data(), static_cast<int>(definition.size()), isFinal) == XML_STATUS_ERROR) {
        return {std::string("the definition isn't well-formed XML: ") +
                XML_ErrorString(XML_GetErrorCode(parser.get())) + " at character " +
                std::to_string(XML_GetCurrentByteIndex(parser.get()) + 1)};
    }
    return reader.takeFaults();
}

} // namespace fmxhost::check
