// FileMaker's own functions, as many as scripts around a plug-in's functions need, and what Get ( flag ) returns.
#include "host/calculation/built_ins.h"

#include "host/base/unicode.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost {
namespace {

// FileMaker's flags that the host knows nothing about.
constexpr std::u16string_view otherFlags =
    u" AccountExtendedPrivileges AccountGroupName AccountName AccountPrivilegeSetName AccountType ActiveFieldContents"
    u" ActiveFieldName ActiveFieldTableName ActiveLayoutObjectName ActiveModifierKeys ActivePortalRowNumber"
    u" ActiveRecordNumber ActiveRepetitionNumber ActiveSelectionSize ActiveSelectionStart AllowAbortState"
    u" AllowFormattingBarState ApplicationArchitecture ApplicationLanguage ApplicationVersion CacheFileName"
    u" CacheFilePath CalculationRepetitionNumber ConnectionAttributes ConnectionState CurrentExtendedPrivileges"
    u" CurrentPrivilegeSetName CurrentTimeUTCMicroseconds CustomMenuSetName Device DocumentsPathListing"
    u" EncryptionState ErrorCaptureState FileLocaleElements FileMakerPath FileName FilePath FileSize FoundCount"
    u" HighContrastColor HighContrastState HostApplicationVersion HostIPAddress HostName InstalledFMPlugins"
    u" InstalledFMPluginsAsJSON LastErrorDetail LastErrorLocation LastExternalErrorDetail LastMessageChoice"
    u" LastStepTokensUsed LayoutAccess LayoutCount LayoutName LayoutNumber LayoutTableName LayoutViewState"
    u" MenubarState ModifiedFields MultiUserState NetworkProtocol NetworkType OpenDataFileInfo PageCount PageNumber"
    u" PersistentID PortalRowNumber PreferencesPath PrinterName PrivilegeSetName QuickFindText RecordAccess RecordID"
    u" RecordModificationCount RecordNumber RecordOpenCount RecordOpenState RegionMonitorEvents RequestCount"
    u" RequestOmitState ScreenDepth ScreenHeight ScreenScaleFactor ScreenWidth ScriptAnimationState ScriptName"
    u" SessionIdentifier SortState StatusAreaState SystemAppearance SystemDrive SystemIPAddress SystemLanguage"
    u" SystemLocaleElements SystemNICAddress SystemVersion TextRulerVisible TotalRecordCount TouchKeyboardState"
    u" TransactionOpenState TriggerCurrentPanel TriggerExternalEvent TriggerGestureInfo TriggerKeystroke"
    u" TriggerModifierKeys TriggerTargetPanel UserCount UserName UseSystemFormatsState UUID UUIDNumber"
    u" WindowContentHeight WindowContentWidth WindowDesktopHeight WindowDesktopWidth WindowHeight WindowLeft"
    u" WindowMode WindowName WindowOrientation WindowStyle WindowTop WindowVisible WindowWidth WindowZoomLevel ";

// A folder as Get answers it: FileMaker's path, with a "/" at its end.
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

// 1/1/0001 is when FileMaker's time begins.
Value nowInMilliseconds()
{
    constexpr std::int64_t before1970 = 62135596800000;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return {std::int64_t{std::chrono::duration_cast<std::chrono::milliseconds>(now).count()} + before1970};
}

struct State {
    std::u16string_view flag;
    Value (*value)();
};
constexpr State states[] = {
    {u"CurrentDate", now<fmx::Data::kDTDate>},
    {u"CurrentHostTimestamp", now<fmx::Data::kDTTimeStamp>},
    {u"CurrentTime", now<fmx::Data::kDTTime>},
    {u"CurrentTimestamp", now<fmx::Data::kDTTimeStamp>},
    {u"CurrentTimeUTCMilliseconds", nowInMilliseconds},
    {u"DesktopPath", [] { return folder("HOME", "Desktop/"); }},
    {u"DocumentsPath", [] { return folder("HOME", "Documents/"); }},
    {u"LastError", [] { return Value(0); }},
    {u"ScriptParameter", [] { return Value(u""); }},
    {u"ScriptResult", [] { return Value(u""); }},
    {u"SystemPlatform", [] { return Value(ownVolume.empty() ? 5 : 1); }},
    {u"TemporaryPath", [] { return folder("TMPDIR", ""); }},
};

} // namespace

std::optional<Value> stateOf(std::u16string_view flag)
{
    const auto* found = std::find_if(std::begin(states), std::end(states),
                                     [&](const State& state) { return foldCase(state.flag) == foldCase(flag); });
    return found != std::end(states) ? std::optional(found->value()) : std::nullopt;
}

std::string unknownStateText(std::u16string_view flag)
{
    const std::string name = toUtf8(flag);
    if (foldCase(otherFlags).find(u' ' + foldCase(flag) + u' ') != std::u16string::npos) {
        return "fmxhost doesn't know what Get ( " + name + " ) returns: the option --get " + name + "=… says it.";
    }
    std::istringstream others(toUtf8(otherFlags));
    std::vector<std::string> flags{std::istream_iterator<std::string>(others), {}};
    for (const State& state : states) {
        flags.push_back(toUtf8(state.flag));
    }
    return "There is no Get ( " + name + " )." + suggestion(name, flags);
}

const std::vector<Function>& builtIns()
{
    // Those without a function are forms of their own.
    static const std::vector<Function> all = [] {
        std::vector<Function> made{
            {u"Case ( test1 ; result1 { ; test2 ; result2 ; … ; default } )",
             u"The result of the first test that is true, else the default."},
            {u"Choose ( test ; result0 { ; result1 ; … } )",
             u"The result with the number that the test gives, from 0 on."},
            {u"Evaluate ( expression )", u"The result of a text that is a calculation, \"?\" if it isn't one."},
            row(u"False", u"The number 0.", [] { return 0; }),
            {u"Get ( flag )",
             u"A state of FileMaker's: CurrentDate, CurrentTime, CurrentTimestamp, CurrentHostTimestamp, "
             u"CurrentTimeUTCMilliseconds, DesktopPath, DocumentsPath, TemporaryPath, SystemPlatform, LastError, "
             u"ScriptParameter, ScriptResult; others, and other results, by the option --get."},
            {u"If ( test ; resultIfTrue { ; resultIfFalse } )", u"One of two results."},
            {u"IsValidExpression ( expression )", u"1 for a text that is a calculation, else 0."},
            {u"Let ( [ name1 = value1 ; $name2 = value2 ; … ] ; calculation )",
             u"Names values for a calculation; those with $ stay set for the calculations that follow."},
            row(u"True", u"The number 1.", [] { return 1; }),
            {u"While ( [ name1 = value1 ; … ] ; condition ; [ name1 = value2 ; … ] ; result )",
             u"Sets the second list's names over and over while the condition is true."},
        };
        for (const auto& table :
             {dateFunctions(), jsonFunctions(), listFunctions(), numberFunctions(), pathFunctions(), textFunctions()}) {
            made.insert(made.end(), table.begin(), table.end());
        }
        std::sort(made.begin(), made.end(),
                  [](const Function& a, const Function& b) { return foldCase(a.name) < foldCase(b.name); });
        return made;
    }();
    return all;
}

} // namespace fmxhost
