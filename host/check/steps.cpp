// script-steps: what it registers for scripts.
//
// A definition is XML: a root element PluginStep with Parameter elements: Type (calc, bool, list, target), Label,
// DataType, ShowInline, Default and, for all but targets, ID, a number that no other parameter has. Lists hold Value
// elements, each with an ID of its own. One parameter at most is a target. Letter case doesn't matter.
#include "host/check/test.h"

#include "host/base/unicode.h"

#include <expat.h>

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <map>
#include <set>
#include <type_traits>

namespace fmxhost::check {
namespace {

using Words = std::initializer_list<std::string_view>;

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char character) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    });
    return result;
}

struct Element {
    std::string name;                              // in lower case
    std::string shown;                             // as it stands there
    std::map<std::string, std::string> attributes; // names in lower case
    bool hasText = false;                          // other than blanks
    std::vector<Element> children;

    bool has(const std::string& attribute) const { return attributes.contains(attribute); }
    std::string value(const std::string& attribute) const { return has(attribute) ? attributes.at(attribute) : ""; }
};

// Reads a definition to a tree whose root holds what is there: one element, when it is well-formed.
class DefinitionParser {
public:
    // Answers what is wrong; "" when nothing is.
    std::string parse(const std::string& definition)
    {
        const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
            XML_ParserCreate("UTF-8"), &XML_ParserFree);
        if (!parser) {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(parser.get(), onStart, onEnd);
        XML_SetCharacterDataHandler(parser.get(), onText);
        constexpr int isFinal = 1;
        if (XML_Parse(parser.get(), definition.data(), static_cast<int>(definition.size()), isFinal) == XML_STATUS_OK) {
            return "";
        }
        return std::string("the definition isn't well-formed XML: ") + XML_ErrorString(XML_GetErrorCode(parser.get())) +
               " at character " + std::to_string(XML_GetCurrentByteIndex(parser.get()) + 1);
    }

    const Element& root() const { return document_.children.front(); }

private:
    static void onStart(void* data, const char* name, const char** attributes)
    {
        auto& open = static_cast<DefinitionParser*>(data)->open_;
        Element element{lowered(name), name, {}, false, {}};
        for (; *attributes != nullptr; attributes += 2) {
            element.attributes[lowered(attributes[0])] = attributes[1];
        }
        open.push_back(&open.back()->children.emplace_back(std::move(element)));
    }

    static void onText(void* data, const char* text, int length)
    {
        if (std::string_view(text, static_cast<std::size_t>(length)).find_first_not_of(" \t\r\n") !=
            std::string::npos) {
            static_cast<DefinitionParser*>(data)->open_.back()->hasText = true;
        }
    }

    static void onEnd(void* data, const char*) { static_cast<DefinitionParser*>(data)->open_.pop_back(); }

    Element document_;
    std::vector<Element*> open_{&document_}; // no element gets a sibling while it is here
};

class DefinitionRules {
public:
    std::vector<std::string> faultsOf(const Element& root)
    {
        expect(root.name == "pluginstep",
               "the definition has the root element <" + root.shown + "> instead of <PluginStep>");
        expectAttributes(root, {}, "<" + root.shown + ">");
        expectNoText(root);
        for (const Element& child : root.children) {
            if (child.name == "parameter") {
                examineParameter(child);
            } else {
                unknown(child, "<" + root.name + ">");
            }
        }
        return std::move(faults_);
    }

private:
    void expect(bool condition, const std::string& fault)
    {
        if (!condition) {
            faults_.push_back(fault);
        }
    }

    void unknown(const Element& element, const std::string& place)
    {
        faults_.push_back("the definition has an element <" + element.shown + "> in " + place + " where none is known");
    }

    void expectNoText(const Element& element)
    {
        expect(!element.hasText, "the definition has text in <" + element.name + ">, where none is known");
    }

    void expectAttributes(const Element& element, Words known, const std::string& owner)
    {
        for (const auto& [name, value] : element.attributes) {
            expect(std::find(known.begin(), known.end(), name) != known.end(),
                   std::string(owner).append(" has an attribute ").append(name).append(" that isn't known"));
        }
    }

    // What an attribute says, if it is there, is one of the words in any letter case.
    void expectWord(const Element& element, const char* attribute, Words known, const std::string& fault,
                    const char* expected)
    {
        const std::string value = element.value(attribute);
        expect(!element.has(attribute) || std::find(known.begin(), known.end(), lowered(value)) != known.end(),
               std::string(fault).append(" \"").append(value).append("\"").append(expected));
    }

    void examineParameter(const Element& parameter)
    {
        const std::string label = parameter.value("label");
        const std::string type = lowered(parameter.value("type"));
        const std::string shown = "parameter " + std::to_string(++count_) + (label.empty() ? "" : " \"" + label + "\"");
        expectAttributes(parameter, {"type", "id", "datatype", "label", "showinline", "default"}, shown);
        expect(parameter.has("type"), shown + " has no type");
        expectWord(parameter, "type", {"calc", "bool", "list", "target"}, shown + " is of type",
                   "; known are calc, bool, list and target");
        expect(!label.empty(), shown + " has no label");
        expectWord(parameter, "showinline", {"true", "false"}, shown + ": showinline is",
                   " instead of \"true\" or \"false\"");
        // Of what a calculation gives; "boolean" stands in older definitions.
        expectWord(parameter, "datatype",
                   {"text", "number", "date", "time", "timestamp", "container", "binary", "boolean"},
                   shown + " is of data type", "; known are text, number, date, time, timestamp and container");
        if (type == "bool") {
            expectWord(parameter, "default", {"true", "false", "0", "1"}, shown + ": its default is",
                       " instead of \"true\" or \"false\"");
        }
        expect(type != "target" || ++targets_ != 2, "the definition has more than one target");
        if (type != "target" || parameter.has("id")) {
            examineId(parameter, ids_, shown);
        }
        examineValues(parameter, type, shown);
    }

    void examineValues(const Element& parameter, const std::string& type, const std::string& owner)
    {
        expectNoText(parameter);
        const std::string shown = "a value of " + owner;
        std::set<std::string> ids;
        for (const Element& value : parameter.children) {
            if (value.name != "value" || type != "list") {
                unknown(value, "<parameter> of type \"" + type + "\"");
                continue;
            }
            expectAttributes(value, {"id"}, shown);
            examineId(value, ids, shown);
            expect(value.hasText, shown + " has no text");
            for (const Element& child : value.children) {
                unknown(child, "<value>");
            }
        }
        expect(type != "list" || !parameter.children.empty(), owner + " is a list without values");
    }

    void examineId(const Element& element, std::set<std::string>& taken, const std::string& owner)
    {
        const std::string id = element.value("id");
        const bool isNumber = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
        expect(isNumber, owner + (id.empty() ? " has no ID" : ": its ID \"" + id + "\" is no number"));
        if (isNumber) {
            const std::string digits = id.substr(std::min(id.find_first_not_of('0'), id.size() - 1));
            expect(taken.insert(digits).second, owner + ": its ID \"" + id + "\" is taken");
        }
    }

    std::vector<std::string> faults_;
    std::set<std::string> ids_; // of parameters
    int count_ = 0;
    int targets_ = 0;
};

void examineStep(const Examination& examination, const fmxkit::ScriptStep& step)
{
    const std::string shown = nameOf(step);
    if (step.name.empty()) {
        examination.fail(shown + " has no name");
    }
    if (step.handler == nullptr) {
        examination.fail(shown + " is registered without a function to call");
    }
    if (step.definition.empty()) {
        examination.fail(shown + " has an empty definition; one without parameters is <PluginStep/>");
        return;
    }
    DefinitionParser parser;
    if (const std::string fault = parser.parse(toUtf8(step.definition)); !fault.empty()) {
        examination.fail(shown + ": " + fault);
        return;
    }
    for (const std::string& fault : DefinitionRules().faultsOf(parser.root())) {
        examination.fail(std::string(shown).append(": ").append(fault));
    }
}

} // namespace

void examineScriptSteps(Examination& examination)
{
    constexpr std::int16_t scriptStepsSince = 57;
    if (examination.settings().apiVersion < scriptStepsSince) {
        throw Skipped("there are script steps from API version 57 on");
    }
    examination.started();
    for (const fmxkit::ScriptStep& step : attemptedSteps()) {
        examineStep(examination, step);
    }
}

} // namespace fmxhost::check
