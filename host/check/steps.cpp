// script-steps: what it registers for scripts.
//
// A definition is XML: a root element PluginStep with Parameter elements: Type (calc, bool, list, target), Label,
// DataType, ShowInline, Default and, for all but targets, ID, a number that no other parameter has. Lists hold Value
// elements, each with an ID of its own. One parameter at most is a target. Letter case doesn't matter.
#include "host/check/test.h"

#include <expat.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <type_traits>

namespace fmxhost::check {
namespace {

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

// An attribute that is known, and what it may say in any letter case; no words: anything.
struct Attribute {
    std::string_view name;
    std::vector<std::string_view> words = {};
};

const std::vector<Attribute>& parameterAttributes()
{
    static const std::vector<Attribute> attributes{
        {"type", {"calc", "bool", "list", "target"}},
        {"id"},
        // Of what a calculation gives; "boolean" stands in older definitions.
        {"datatype", {"text", "number", "date", "time", "timestamp", "container", "binary", "boolean"}},
        {"label"},
        {"showinline", {"true", "false"}},
        {"default"}};
    return attributes;
}

class DefinitionRules {
public:
    std::vector<std::string> faultsOf(const Element& root)
    {
        expect(root.name == "pluginstep",
               "the definition has the root element <" + root.shown + "> instead of <PluginStep>");
        expectOnly(root, {}, "<" + root.shown + ">");
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

    void expectOnly(const Element& element, const std::vector<Attribute>& known, const std::string& owner)
    {
        for (const auto& [name, value] : element.attributes) {
            const auto attribute = std::find_if(known.begin(), known.end(),
                                                [&name = name](const Attribute& each) { return each.name == name; });
            if (attribute == known.end()) {
                faults_.push_back(
                    std::string(owner).append(" has an attribute ").append(name).append(" that isn't known"));
                continue;
            }
            const auto& words = attribute->words;
            expect(
                words.empty() || std::find(words.begin(), words.end(), lowered(value)) != words.end(),
                std::string(owner).append(": its ").append(name).append(" \"").append(value).append("\" isn't known"));
        }
    }

    void examineParameter(const Element& parameter)
    {
        const std::string label = parameter.value("label");
        const std::string type = lowered(parameter.value("type"));
        const std::string shown = "parameter " + std::to_string(++count_) + (label.empty() ? "" : " \"" + label + "\"");
        expectOnly(parameter, parameterAttributes(), shown);
        expectNoText(parameter);
        expect(!type.empty(), shown + " has no type");
        expect(!label.empty(), shown + " has no label");
        expect(type != "target" || ++targets_ != 2, "the definition has more than one target");
        if (type != "target" || parameter.has("id")) {
            examineId(parameter, ids_, shown);
        }
        std::set<std::string> ids;
        for (const Element& child : parameter.children) {
            if (child.name == "value" && type == "list") {
                examineValue(child, ids, "a value of " + shown);
            } else {
                unknown(child, "<parameter> of type \"" + type + "\"");
            }
        }
        expect(type != "list" || !parameter.children.empty(), shown + " is a list without values");
    }

    void examineValue(const Element& value, std::set<std::string>& ids, const std::string& shown)
    {
        expectOnly(value, {{"id"}}, shown);
        examineId(value, ids, shown);
        expect(value.hasText, shown + " has no text");
        for (const Element& child : value.children) {
            unknown(child, "<value>");
        }
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
    for (const fmxkit::ScriptStep& step : attempted(fmxkit::scriptSteps(), fmxkit::refusals().scriptSteps)) {
        examineStep(examination, step);
    }
}

} // namespace fmxhost::check
