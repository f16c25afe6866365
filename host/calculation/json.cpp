// A path within JSON has names and, in brackets, numbers from 0 on: "order.items[0].price". "[:]" is the last element
// of an array and "[+]" the place behind it. Members come in the order of their names, as in FileMaker.
#include "host/calculation/built_ins.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

namespace fmxhost {
namespace {

using Element = nlohmann::json;

enum Type : std::int64_t { raw, string, number, object, array, boolean, null };

// As FileMaker, which says behind a "?" what is wrong.
[[noreturn]] void fail(const std::string& reason)
{
    throw NoResult{Value("? " + reason)};
}

Element parsed(const std::string& text)
{
    constexpr int deepest = 500; // writing it takes the stack
    try {
        return Element::parse(text, [](int depth, auto, auto&) {
            return depth < deepest ? true : (fail("The JSON is nested too deeply."), false);
        });
    } catch (const Element::exception& error) {
        const std::string reason = error.what(); // behind a name of the library's in brackets
        fail(reason.substr(reason.find("] ") + 2));
    }
}

std::string written(const Element& element)
{
    return element.dump(-1, ' ', false, Element::error_handler_t::replace);
}

// "a[0].b" has the steps "a", "[0" and "b".
std::vector<std::string> stepsOf(std::string_view path)
{
    std::vector<std::string> steps;
    while (!path.empty()) {
        const bool isIndex = path.front() == '[';
        steps.emplace_back(path.substr(0, isIndex ? path.find(']') : path.find_first_of(".[")));
        path.remove_prefix(std::min(steps.back().size() + (isIndex ? 1 : 0), path.size()));
        path.remove_prefix(path.starts_with('.') ? 1 : 0);
    }
    return steps;
}

// The element at the path, or null. With `makes`, what is missing is made on the way.
Element* find(Element& root, const Value& path, bool makes)
{
    constexpr std::size_t longest = 1000000; // array that is made
    Element* at = &root;
    for (const std::string& step : stepsOf(path.utf8())) {
        const bool isIndex = step.starts_with('[');
        if (at->is_null() && makes) {
            *at = isIndex ? Element::array() : Element::object();
        }
        if (isIndex ? !at->is_array() : !at->is_object()) {
            return nullptr;
        }
        const std::size_t index = !isIndex       ? 0
                                  : step == "[+" ? at->size()
                                  : step == "[:" ? at->size() - 1
                                                 : std::strtoul(step.c_str() + 1, nullptr, 10);
        const bool isThere = isIndex ? index < at->size() : at->contains(step);
        if (!isThere && (!makes || index >= longest)) {
            return nullptr;
        }
        at = isIndex ? &(*at)[index] : &(*at)[step];
    }
    return at;
}

Value valueOf(const Element& element)
{
    if (element.is_number_float()) {
        const fmx::FixPtUniquePtr fixed;
        fixed->AssignDouble(element.get<double>());
        return Value(*fixed);
    }
    return element.is_null()      ? Value(u"")
           : element.is_string()  ? Value(element.get<std::string>())
           : element.is_boolean() ? Value(element.get<bool>() ? 1 : 0)
           : element.is_number()  ? Value(Value(written(element)).data().GetAsNumber())
                                  : Value(written(element));
}

Element elementOf(const Value& value, std::int64_t type)
{
    const std::string text = value.utf8();
    switch (type) {
    case string:
        return text;
    case number:
        return value == value.integer() ? Element(value.integer()) : Element(value.number());
    case object:
    case array:
        return parsed(!text.empty() ? text : type == object ? "{}" : "[]");
    case boolean:
        return value.boolean();
    case null:
        return nullptr;
    default: // what isn't JSON is a text
        return Element::accept(text) ? parsed(text) : Element(text);
    }
}

Value getElement(const Value& json, const Value& path)
{
    Element root = parsed(json.utf8());
    const Element* found = find(root, path, false);
    return found != nullptr ? valueOf(*found) : Value(u"");
}

// Path, value and type, once or several times.
Value setElement(const Arguments& arguments)
{
    Element root = arguments[0].data().IsEmpty() ? Element() : parsed(arguments[0].utf8());
    for (std::size_t index = 1; index + 2 < arguments.size(); index += 3) {
        Element* const place = find(root, arguments[index], true);
        if (place == nullptr) {
            fail("There can't be an element " + arguments[index].utf8());
        }
        *place = elementOf(arguments[index + 1], arguments[index + 2].integer());
    }
    return {written(root)};
}

} // namespace

std::vector<Function> jsonFunctions()
{
    return {
        row(u"JSONArray", [] { return array; }),
        row(u"JSONBoolean", [] { return boolean; }),
        row(u"JSONGetElement ( json ; keyOrIndexOrPath )", getElement),
        row(u"JSONNull", [] { return null; }),
        row(u"JSONNumber", [] { return number; }),
        row(u"JSONObject", [] { return object; }),
        row(u"JSONRaw", [] { return raw; }),
        {u"JSONSetElement ( json ; keyOrIndexOrPath ; value ; type )", 4, 4, setElement},
        row(u"JSONString", [] { return string; }),
    };
}

} // namespace fmxhost
