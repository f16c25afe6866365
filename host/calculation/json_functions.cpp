// Paths within JSON are names and numbers in brackets: "order.items[0].price"; "[:]" is the last element and "[+]" the
// one behind it. Members stand in the order of their names.
#include "host/calculation/built_ins.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

namespace fmxhost {
namespace {

using Element = nlohmann::json;

enum JsonType : std::int64_t { raw, string, number, object, array, boolean, null };

// FileMaker's results of bad JSON begin with a "?", too.
[[noreturn]] void fail(const std::string& reason)
{
    throw NoResult{Value("? " + reason)};
}

Element parsed(const std::string& text)
{
    constexpr int deepest = 500; // writing it needs the stack
    const auto isFlat = [](int depth, auto, auto&) {
        return depth < deepest || (fail("The JSON is nested too deeply."), false);
    };
    try {
        return Element::parse(text, isFlat);
    } catch (const Element::exception& error) {
        const std::string reason = error.what(); // behind a name of the library's in brackets
        fail(reason.substr(reason.find("] ") + 2));
    }
}

Value textOf(const Element& element)
{
    return {element.dump(-1, ' ', false, Element::error_handler_t::replace)};
}

// "a[0].b" has the steps "a", "[0" and "b".
std::vector<std::string> stepsOf(std::string_view path)
{
    std::vector<std::string> steps;
    while (!path.empty()) {
        const bool isIndex = path.front() == '[';
        const std::size_t end = std::min(isIndex ? path.find(']') : path.find_first_of(".["), path.size());
        steps.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + (isIndex ? 1 : 0), path.size()));
        path.remove_prefix(path.starts_with('.') ? 1 : 0);
    }
    return steps;
}

std::size_t indexOf(const Element& list, const std::string& step)
{
    return step == "[+" ? list.size() : step == "[:" ? list.size() - 1 : std::strtoul(step.c_str() + 1, nullptr, 10);
}

// The element at the path, or null. With `makes`, what is missing is made on the way.
Element* elementAt(Element& root, const std::vector<std::string>& steps, bool makes)
{
    constexpr std::size_t longest = 1000000; // of the lists that are made
    Element* at = &root;
    for (const std::string& step : steps) {
        const bool isIndex = step.starts_with('[');
        if (at->is_null() && makes) {
            *at = isIndex ? Element::array() : Element::object();
        }
        if (isIndex ? !at->is_array() : !at->is_object()) {
            return nullptr;
        }
        const std::size_t index = isIndex ? indexOf(*at, step) : 0;
        if (!makes && (isIndex ? index >= at->size() : !at->contains(step))) {
            return nullptr;
        }
        if (isIndex && index >= longest) {
            return nullptr;
        }
        at = isIndex ? &(*at)[index] : &(*at)[step];
    }
    return at;
}

Value valueOf(const Element& element)
{
    if (element.is_boolean()) {
        return {element.get<bool>() ? 1 : 0};
    }
    if (element.is_number_float()) {
        const fmx::FixPtUniquePtr number;
        number->AssignDouble(element.get<double>());
        return Value(*number);
    }
    return element.is_null()     ? Value(u"")
           : element.is_string() ? Value(element.get<std::string>())
           : element.is_number() ? Value(Number(textOf(element)))
                                 : textOf(element);
}

Element elementOf(const Value& value, std::int64_t type)
{
    const std::string text = value.utf8();
    switch (type) {
    case string:
        return text;
    case number:
        return value.number() == static_cast<double>(value.integer()) ? Element(value.integer())
                                                                      : Element(value.number());
    case object:
    case array:
        return text.empty() ? type == object ? Element::object() : Element::array() : parsed(text);
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
    const Element* found = elementAt(root, stepsOf(path.utf8()), false);
    return found != nullptr ? valueOf(*found) : Value(u"");
}

// Path, value and type, again and again.
Value setElement(const Arguments& arguments)
{
    const std::string json = arguments[0].utf8();
    Element root = json.empty() ? Element() : parsed(json);
    for (std::size_t index = 1; index + 2 < arguments.size(); index += 3) {
        Element* const place = elementAt(root, stepsOf(arguments[index].utf8()), true);
        if (place == nullptr) {
            fail("There can't be an element " + arguments[index].utf8());
        }
        *place = elementOf(arguments[index + 1], arguments[index + 2].integer());
    }
    return textOf(root);
}

Value deleteElement(const Value& json, const Value& path)
{
    Element root = parsed(json.utf8());
    std::vector<std::string> steps = stepsOf(path.utf8());
    if (!steps.empty() && elementAt(root, steps, false) != nullptr) {
        const std::string last = steps.back();
        steps.pop_back();
        Element& in = *elementAt(root, steps, false);
        last.starts_with('[') ? in.erase(indexOf(in, last)) : static_cast<void>(in.erase(last));
    }
    return textOf(root);
}

template <bool keys>
Value listed(const Value& json, const Value& path)
{
    Element root = parsed(json.utf8());
    const Element* found = elementAt(root, stepsOf(path.utf8()), false);
    std::u16string result;
    if (found != nullptr && found->is_structured()) {
        for (const auto& item : found->items()) {
            result += (result.empty() ? u"" : u"\r") + (keys ? Value(item.key()) : valueOf(item.value())).text();
        }
    }
    return {result};
}

std::int64_t typeAt(const Value& json, const Value& path)
{
    Element root = parsed(json.utf8());
    const Element* found = elementAt(root, stepsOf(path.utf8()), false);
    return found == nullptr      ? raw
           : found->is_string()  ? string
           : found->is_number()  ? number
           : found->is_object()  ? object
           : found->is_array()   ? array
           : found->is_boolean() ? boolean
                                 : null;
}

Function constant(std::u16string_view name, std::int64_t type)
{
    return row(name, u"A type of elements.", [type] { return type; });
}

} // namespace

std::vector<Function> jsonFunctions()
{
    return {
        constant(u"JSONArray", array),
        constant(u"JSONBoolean", boolean),
        row(u"JSONDeleteElement ( json ; keyOrIndexOrPath )", u"JSON without one element.", deleteElement),
        row(u"JSONGetElement ( json ; keyOrIndexOrPath )", u"The value at a path such as order.items[0].price.",
            getElement),
        row(u"JSONGetElementType ( json ; keyOrIndexOrPath )", u"The type of the element, such as JSONString.", typeAt),
        row(u"JSONListKeys ( json ; keyOrIndexOrPath )",
            u"The names or numbers of an element's own elements, separated by ¶.", listed<true>),
        row(u"JSONListValues ( json ; keyOrIndexOrPath )", u"The values of an element's own elements, separated by ¶.",
            listed<false>),
        constant(u"JSONNull", null),
        constant(u"JSONNumber", number),
        constant(u"JSONObject", object),
        constant(u"JSONRaw", raw),
        row(u"JSONSetElement ( json ; keyOrIndexOrPath ; value ; type )",
            u"JSON with a value of this type, such as JSONString, at a path; of several each in brackets: [ "
            u"keyOrIndexOrPath ; value ; type ].",
            setElement),
        constant(u"JSONString", string),
    };
}

} // namespace fmxhost
