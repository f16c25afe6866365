// script-steps: what it registers for scripts.
//
// A definition is XML: a root element PluginStep with Parameter elements: Type (calc, bool, list, target), Label,
// DataType, ShowInline, Default and, for all but targets, ID, a number that no other parameter has. Lists hold Value
// elements, each with an ID of its own. One parameter at most is a target. Letter case doesn't matter.
//
// The definition is examined as it is read, an element where it begins and what it must hold where it ends.
#include "host/check/test.h"

#include <expat.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

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

using Words = std::set<std::string_view>;
// Attributes that are known, and what each may say in any letter case; no words: anything.
using KnownAttributes = std::map<std::string_view, Words>;

const KnownAttributes stepAttributes;
const KnownAttributes parameterAttributes{
    {"type", {"calc", "bool", "list", "target"}},
    {"id", {}},
    // Of what a calculation gives; "boolean" stands in older definitions.
    {"datatype", {"text", "number", "date", "time", "timestamp", "container", "binary", "boolean"}},
    {"label", {}},
    {"showinline", {"true", "false"}},
    {"default", {}}};
const KnownAttributes valueAttributes{{"id", {}}};

class DefinitionReader {
public:
    // Answers what is wrong.
    std::vector<std::string> examine(const std::string& definition)
    {
        const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
            XML_ParserCreate("UTF-8"), &XML_ParserFree);
        if (!parser) {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(
            parser.get(),
            [](void* reader, const char* name, const char** attributes) {
                static_cast<DefinitionReader*>(reader)->begin(name, attributes);
            },
            [](void* reader, const char*) { static_cast<DefinitionReader*>(reader)->end(); });
        XML_SetCharacterDataHandler(parser.get(), [](void* reader, const char* text, int length) {
            static_cast<DefinitionReader*>(reader)->text({text, static_cast<std::size_t>(length)});
        });
        constexpr int isFinal = 1;
        if (XML_Parse(parser.get(), definition.data(), static_cast<int>(definition.size()), isFinal) != XML_STATUS_OK) {
            return {std::string("the definition isn't well-formed XML: ") +
                    XML_ErrorString(XML_GetErrorCode(parser.get())) + " at character " +
                    std::to_string(XML_GetCurrentByteIndex(parser.get()) + 1)};
        }
        return std::move(faults_);
    }

private:
    struct Element {
        std::string name;                              // in lower case
        std::string shown;                             // in faults
        std::map<std::string, std::string> attributes; // names in lower case
        std::set<std::string> ids = {};                // of the elements within
        bool hasParts = false;                         // such elements
        bool hasText = false;                          // other than blanks
        bool isKnown = true;                           // within what isn't known nothing is examined

        std::string value(const std::string& attribute) const
        {
            return attributes.contains(attribute) ? attributes.at(attribute) : "";
        }
    };

    void expect(bool condition, const std::string& fault)
    {
        if (!condition) {
            faults_.push_back(fault);
        }
    }

    void begin(const std::string& name, const char** attributes)
    {
        Element element{lowered(name), "<" + name + ">", {}};
        for (; *attributes != nullptr; attributes += 2) {
            element.attributes[lowered(attributes[0])] = attributes[1];
        }
        if (open_.empty()) {
            expect(element.name == "pluginstep",
                   "the definition has the root element " + element.shown + " instead of <PluginStep>");
            expectOnly(stepAttributes, element);
        } else if (open_.back().isKnown) {
            beginWithin(open_.back(), element);
        } else {
            element.isKnown = false;
        }
        open_.push_back(std::move(element));
    }

    void beginWithin(Element& outer, Element& element)
    {
        const std::string type = lowered(outer.value("type"));
        if (open_.size() == 1 && element.name == "parameter") {
            beginParameter(outer, element);
        } else if (open_.size() == 2 && type == "list" && element.name == "value") {
            element.shown = "a value of " + outer.shown;
            expectOnly(valueAttributes, element);
            expectId(outer, element);
        } else {
            element.isKnown = false;
            faults_.push_back("the definition has an element " + element.shown + " in <" + outer.name + ">" +
                              (outer.name == "parameter" ? " of type \"" + type + "\"" : "") + " where none is known");
        }
    }

    void beginParameter(Element& outer, Element& parameter)
    {
        const std::string label = parameter.value("label");
        const std::string type = lowered(parameter.value("type"));
        parameter.shown = "parameter " + std::to_string(++parameters_) + (label.empty() ? "" : " \"" + label + "\"");
        expectOnly(parameterAttributes, parameter);
        expect(!type.empty(), parameter.shown + " has no type");
        expect(!label.empty(), parameter.shown + " has no label");
        expect(type != "target" || ++targets_ != 2, "the definition has more than one target");
        if (type != "target" || parameter.attributes.contains("id")) {
            expectId(outer, parameter);
        }
    }

    void end()
    {
        const Element element = std::move(open_.back());
        open_.pop_back();
        if (!element.isKnown) {
            return;
        }
        if (element.name == "value") {
            expect(element.hasText, element.shown + " has no text");
        } else {
            expect(!element.hasText, "the definition has text in <" + element.name + ">, where none is known");
            expect(lowered(element.value("type")) != "list" || element.hasParts,
                   element.shown + " is a list without values");
        }
    }

    void text(std::string_view text)
    {
        open_.back().hasText = open_.back().hasText || text.find_first_not_of(" \t\r\n") != std::string_view::npos;
    }

    void expectOnly(const KnownAttributes& known, const Element& element)
    {
        for (const auto& [name, value] : element.attributes) {
            const auto attribute = known.find(name);
            if (attribute == known.end()) {
                faults_.push_back(element.shown + " has an attribute " + name + " that isn't known");
            } else {
                const Words& words = attribute->second;
                expect(words.empty() || words.contains(lowered(value)),
                       element.shown + ": its " + name + " \"" + value + "\" isn't known");
            }
        }
    }

    // A number that no other element within the outer one has.
    void expectId(Element& outer, const Element& element)
    {
        const std::string id = element.value("id");
        const bool isNumber = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
        outer.hasParts = true;
        expect(isNumber, element.shown + (id.empty() ? " has no ID" : ": its ID \"" + id + "\" is no number"));
        if (isNumber) {
            const bool isNew = outer.ids.insert(id.substr(std::min(id.find_first_not_of('0'), id.size()))).second;
            expect(isNew, element.shown + ": its ID \"" + id + "\" is taken");
        }
    }

    std::vector<Element> open_;
    std::vector<std::string> faults_;
    int parameters_ = 0;
    int targets_ = 0;
};

} // namespace

void examineScriptSteps(Examination& examination)
{
    constexpr std::int16_t scriptStepsSince = 57;
    if (examination.options().apiVersion < scriptStepsSince) {
        throw Skipped("there are script steps from API version 57 on");
    }
    examination.started();
    for (const fmxkit::ScriptStep& step : attempted(fmxkit::scriptSteps(), fmxkit::refusals().scriptSteps)) {
        const std::string shown = nameOf(step);
        if (step.name.empty()) {
            examination.fail(shown + " has no name");
        }
        if (step.handler == nullptr) {
            examination.fail(shown + " is registered without a function to call");
        }
        if (step.definition.empty()) {
            examination.fail(shown + " has an empty definition; one without parameters is <PluginStep/>");
            continue;
        }
        for (const std::string& fault : DefinitionReader().examine(toUtf8(step.definition))) {
            examination.fail(std::string(shown).append(": ").append(fault));
        }
    }
}

} // namespace fmxhost::check
