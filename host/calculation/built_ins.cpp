// FileMaker's own functions, as many as scripts around a plug-in's functions need, and what Get ( flag ) returns.
#include "host/calculation/built_ins.h"

#include "lacking_names.h"

#include "host/base/unicode.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>

namespace fmxhost {
namespace {

// With which FileMaker begins a path of macOS; empty: of Linux.
constexpr std::string_view bootVolume = "/Macintosh HD";
#ifdef __APPLE__
constexpr std::string_view ownVolume = bootVolume;
#else
constexpr std::string_view ownVolume;
#endif
constexpr std::string_view volumes = "/Volumes/";

// What stays as it is in a path of a URL (RFC 3986, "pchar" and "/"); before the "/" what does so anywhere.
constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/:@!$&'()*+,;=";

std::string percentEncoded(const std::string& text, std::string_view kept)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char unit : text) {
        const auto byte = static_cast<unsigned char>(unit);
        const bool isKept = kept.find(unit) != std::string_view::npos;
        result += isKept ? std::string(1, unit) : std::string{'%', digits[byte / 16U], digits[byte % 16U]};
    }
    return result;
}

std::string percentDecoded(const std::string& text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned byte = 0;
        const char* const code = text.data() + at + 1;
        const bool isCode =
            text[at] == '%' && at + 2 < text.size() && std::from_chars(code, code + 2, byte, 16).ptr == code + 2;
        result += isCode ? static_cast<char>(byte) : text[at];
        at += isCode ? 2 : 0;
    }
    return result;
}

// FileMaker begins a path of macOS with the volume, one of Windows with "/C:/" or, on a share, "//server/".
bool isOfWindows(std::string_view path)
{
    return path.starts_with("//") || (path.starts_with('/') && path.substr(0, 3).ends_with(':'));
}

Value convertFromFileMakerPath(const Value& given, const Value& format)
{
    const std::u16string wanted = foldCase(format.text());
    std::string path = given.utf8();
    bool ofMac = !ownVolume.empty();
    const std::size_t colon = path.find(':'); // behind "file", "filemac", "imagelinux" and the like
    if (colon > 1 && colon < path.find('/')) {
        ofMac = path.substr(0, colon).ends_with("mac");
        path.erase(0, colon + 1);
    }
    if (wanted == u"winpath" && isOfWindows(path)) {
        std::replace(path.begin(), path.end(), '/', '\\');
        return {path.substr(path.starts_with("\\\\") ? 0 : 1)};
    }
    if (path == bootVolume || path.starts_with(std::string(bootVolume) + "/")) {
        path = path.size() == bootVolume.size() ? "/" : path.substr(bootVolume.size());
    } else if (ofMac && path.starts_with('/') && !isOfWindows(path) && !path.starts_with(volumes)) {
        path = std::string(volumes) + path.substr(1);
    }
    if (wanted == u"urlpath") {
        return {(path.starts_with("//") ? "file:" : "file://") + percentEncoded(path, plain)};
    }
    return wanted == u"posixpath" ? Value(path) : Value(u"?");
}

Value convertToFileMakerPath(const Value& given, const Value& format)
{
    const std::u16string from = foldCase(format.text());
    std::string path = given.utf8();
    if (from == u"winpath") {
        std::replace(path.begin(), path.end(), '\\', '/');
        path.insert(0, path.substr(1).starts_with(':') ? "/" : "");
    } else if (from == u"urlpath" && path.starts_with("file://")) {
        path = percentDecoded(path.substr(path.starts_with("file:///") ? 7 : 5));
    } else if (from != u"posixpath") {
        return {u"?"};
    }
    if (!ownVolume.empty() && path.starts_with(volumes)) {
        path.erase(0, volumes.size() - 1);
    } else if (path.starts_with('/') && !isOfWindows(path)) {
        path.insert(0, ownVolume);
    }
    return {"file:" + path};
}

// A folder as Get returns it: FileMaker's path, with a "/" at its end.
Value folder(const char* variable, const char* below)
{
    const char* value = std::getenv(variable);
    const std::string path = value != nullptr ? value : "/tmp";
    return {std::string(ownVolume) + path + (path.ends_with('/') ? "" : "/") + below};
}

template <fmx::Data::DataType type>
Value now()
{
    const fmx::DateTimeUniquePtr time;
    time->Now();
    time->SetNormalizedTime(time->GetHour(), time->GetMinute(), time->GetSec()); // whole seconds, as in FileMaker
    fmx::DataUniquePtr data;
    data->SetDateTime(*time, type, type);
    return Value(std::move(data));
}

using State = std::pair<std::u16string_view, Value (*)()>;
constexpr State states[] = {
    {u"CurrentDate", now<fmx::Data::kDTDate>},
    {u"CurrentHostTimestamp", now<fmx::Data::kDTTimeStamp>},
    {u"CurrentTime", now<fmx::Data::kDTTime>},
    {u"CurrentTimestamp", now<fmx::Data::kDTTimeStamp>},
    {u"DesktopPath", [] { return folder("HOME", "Desktop/"); }},
    {u"DocumentsPath", [] { return folder("HOME", "Documents/"); }},
    {u"LastError", [] { return Value(0); }},
    {u"ScriptParameter", [] { return Value(u""); }},
    {u"ScriptResult", [] { return Value(u""); }},
    {u"SystemPlatform", [] { return Value(ownVolume.empty() ? 5 : 1); }},
    {u"TemporaryPath", [] { return folder("TMPDIR", ""); }},
};

} // namespace

bool isLacking(std::u16string_view name)
{
    return foldCase(lackingNames).find(u'\n' + foldCase(name) + u'\n') != std::u16string::npos;
}

std::optional<Value> stateOf(std::u16string_view flag)
{
    const auto* found = std::find_if(std::begin(states), std::end(states),
                                     [&](const State& state) { return foldCase(state.first) == foldCase(flag); });
    return found != std::end(states) ? std::optional(found->second()) : std::nullopt;
}

std::string unknownStateText(std::u16string_view flag)
{
    const std::string name = toUtf8(flag);
    const std::string call = "Get ( " + name + " )";
    if (isLacking(toUtf16(call))) {
        return "fmxhost doesn't know what " + call + " returns: the option --get " + name + "=… says it.";
    }
    std::vector<std::string> calls;
    std::transform(std::begin(states), std::end(states), std::back_inserter(calls),
                   [](const State& state) { return "Get ( " + toUtf8(state.first) + " )"; });
    return "There is no " + call + "." + suggestion(call, calls);
}

const std::vector<Function>& builtIns()
{
    static const std::vector<Function> all = [] {
        std::vector<Function> made{
            {u"Case ( test1 ; result1 { ; test2 ; result2 ; … ; default } )", 2, -1},
            {u"Choose ( test ; result0 { ; result1 ; … } )", 2, -1},
            row(u"ConvertFromFileMakerPath ( fileMakerPath ; format )", convertFromFileMakerPath),
            row(u"ConvertToFileMakerPath ( standardPath ; format )", convertToFileMakerPath),
            {u"Evaluate ( expression )", 1, 1},
            row(u"False", [] { return 0; }),
            {u"Get ( flag )", 1, 1, nullptr,
             u"CurrentDate, CurrentTime, CurrentTimestamp, CurrentHostTimestamp, DesktopPath, DocumentsPath, "
             u"TemporaryPath, SystemPlatform, LastError, ScriptParameter, ScriptResult; others by the option --get."},
            row(u"GetAsURLEncoded ( text )",
                [](const Value& text) { return percentEncoded(text.utf8(), plain.substr(0, plain.find('/'))); }),
            {u"If ( test ; resultIfTrue { ; resultIfFalse } )", 2, 3},
            {u"Let ( [ name1 = value1 ; $name2 = value2 ; … ] ; calculation )", 2, 2},
            row(u"PosixPath", [] { return u"PosixPath"; }),
            row(u"True", [] { return 1; }),
            row(u"URLPath", [] { return u"URLPath"; }),
            {u"While ( [ name1 = value1 ; … ] ; condition ; [ name1 = value2 ; … ] ; result )", 4, 4},
            row(u"WinPath", [] { return u"WinPath"; }),
        };
        for (const auto& table :
             {dateFunctions(), jsonFunctions(), listFunctions(), numberFunctions(), textFunctions()}) {
            made.insert(made.end(), table.begin(), table.end());
        }
        std::sort(made.begin(), made.end(),
                  [](const Function& a, const Function& b) { return foldCase(a.name) < foldCase(b.name); });
        return made;
    }();
    return all;
}

} // namespace fmxhost
