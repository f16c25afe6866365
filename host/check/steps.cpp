// script-steps: what it registers for scripts.
//
// A definition is XML: a root element PluginStep with Parameter elements, and in those of the type list Value elements.
// `kinds` says what each may have; besides, IDs are numbers and unique, targets need none, one parameter at most is a
// target, and a list has values. Letter case doesn't matter. Elements are examined as they are read; within one that
// isn't known nothing is.
#include "host/check/test.h"

#include <expat.h>

#include <algorithm>
#include <map>
#include <set>

namespace fmxhost::check {
namespace {

struct Attribute {
    bool isRequired = false;
    std::set<std::string> words = {}; // that it may say; none: anything
};
struct Kind {
    std::string name;
    bool hasText;
    std::map<std::string, Attribute> attributes;
};
// Each within the one before.
const std::vector<Kind> kinds{
    {"pluginstep", false, {}},
    {"parameter",
     false,
     {{"type", {true, {"calc", "bool", "list", "target"}}},
      {"id", {true}},
      // Of what a calculation gives; "boolean" stands in older definitions.
      {"datatype", {false, {"text", "number", "date", "time", "timestamp", "container", "binary", "boolean"}}},
      {"label", {true}},
      {"showinline", {false, {"true", "false"}}},
      {"default", {}}}},
    {"value", true, {{"id", {true}}}}};

std::string lowered(std::string_view text)
{
    return toUtf8(foldCase(toUtf16(text)));
}

// Where the parser is, in bytes. Newer versions of Expat deprecate the one function for it that all versions have.
XML_Index byteIndex(XML_Parser parser)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return XML_GetCurrentByteIndex(parser);
#pragma GCC diagnostic pop
}

class DefinitionReader {
public:
    // Returns what is wrong.
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
            const std::string_view read(text, static_cast<std::size_t>(length));
            static_cast<DefinitionReader*>(reader)->open_.back().hasText |=
                read.find_first_not_of(" \t\r\n") != read.npos;
        });
        constexpr int isFinal = 1;
        if (XML_Parse(parser.get(), definition.data(), static_cast<int>(definition.size()), isFinal) != XML_STATUS_OK) {
            return {std::string("the definition isn't well-formed XML: ") +
                    XML_ErrorString(XML_GetErrorCode(parser.get())) + " at character " +
                    std::to_string(byteIndex(parser.get()) + 1)};
        }
        return std::move(faults_);
    }

private:
    struct Element {
        const Kind* kind = nullptr; // null: it isn't known
        std::string shown;
        std::map<std::string, std::string> attributes = {}; // names in lower case
        std::set<std::string> ids = {};                     // of the elements within
        bool hasParts = false;
        bool hasText = false; // other than blanks

        std::string type() const { return attributes.contains("type") ? lowered(attributes.at("type")) : ""; }
    };

    void expect(bool condition, const std::string& fault)
    {
        if (!condition) {
            faults_.push_back(fault);
        }
    }

    void begin(const std::string& name, const char** attributes)
    {
        Element element{nullptr, "<" + name + ">"};
        for (; *attributes != nullptr; attributes += 2) {
            element.attributes[lowered(attributes[0])] = attributes[1];
        }
        const std::size_t depth = open_.size();
        const bool isKnown =
            depth < kinds.size() && lowered(name) == kinds[depth].name && (depth < 2 || open_.back().type() == "list");
        element.kind = isKnown ? &kinds[depth] : nullptr;
        if (depth == 0) {
            expect(isKnown, "the definition has the root element " + element.shown + " instead of <PluginStep>");
        } else if (open_.back().kind != nullptr) {
            const std::string type = open_.back().type();
            expect(isKnown, "the definition has an element " + element.shown + " in <" + open_.back().kind->name + ">" +
                                (type.empty() ? "" : " of type \"" + type + "\"") + " where none is known");
        }
        if (isKnown && depth == 1) {
            const auto label = element.attributes.find("label");
            element.shown = "parameter " + std::to_string(++parameters_) +
                            (label == element.attributes.end() ? "" : " \"" + label->second + "\"");
        } else if (isKnown && depth == 2) {
            element.shown = "a value of " + open_.back().shown;
        }
        if (isKnown) {
            examineAttributes(element);
        }
        open_.push_back(std::move(element));
    }

    void examineAttributes(const Element& element)
    {
        for (const auto& [name, value] : element.attributes) {
            const auto known = element.kind->attributes.find(name);
            if (known == element.kind->attributes.end()) {
                faults_.push_back(element.shown + " has an attribute " + name + " that isn't known");
            } else if (!known->second.words.empty() && !known->second.words.contains(lowered(value))) {
                faults_.push_back(
                    std::string(element.shown).append(": its " + name + " \"").append(value).append("\" isn't known"));
            }
        }
        const bool isTarget = element.type() == "target";
        for (const auto& [name, attribute] : element.kind->attributes) {
            expect(!attribute.isRequired || element.attributes.contains(name) || (isTarget && name == "id"),
                   element.shown + " has no " + name);
        }
        expect(!isTarget || ++targets_ != 2, "the definition has more than one target");
        if (element.attributes.contains("id")) {
            const std::string& id = element.attributes.at("id");
            const bool isNumber = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
            const std::string digits = id.substr(std::min(id.find_first_not_of('0'), id.size()));
            expect(isNumber, element.shown + ": its id \"" + id + "\" is no number");
            expect(!isNumber || open_.back().ids.insert(digits).second,
                   element.shown + ": its id \"" + id + "\" is taken");
        }
    }

    void end()
    {
        const Element element = std::move(open_.back());
        open_.pop_back();
        if (element.kind != nullptr) {
            expect(!element.hasText || element.kind->hasText,
                   "the definition has text in <" + element.kind->name + ">, where none is known");
            expect(element.hasText || !element.kind->hasText, element.shown + " has no text");
            expect(element.hasParts || element.type() != "list", element.shown + " is a list without values");
        }
        if (!open_.empty()) {
            open_.back().hasParts = true;
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
        examination.expect(!step.name.empty(), shown + " has no name");
        examination.expect(step.handler != nullptr, shown + " is registered without a function to call");
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
