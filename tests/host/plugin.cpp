// A plug-in for the host's tests. It keeps every rule, unless the environment variable SAMPLE says otherwise:
// "KEY=VALUE", a line each. Texts and numbers are given by KEY; "crash", "fault" and "start" name what it does wrong,
// and when.
#include <FMWrapper.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

FMX_ExternCallPtr gFMX_ExternCallPtr = nullptr;

namespace {

using fmx::Data;
using fmx::DataVect;
using fmx::errcode;
using fmx::ExprEnv;

// The value of a key, or what a good plug-in has there.
std::string setting(const std::string& key, const std::string& good = "")
{
    const char* all = std::getenv("SAMPLE");
    std::istringstream lines(all != nullptr ? all : "");
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key + "=")) {
            return line.substr(key.size() + 1);
        }
    }
    return good;
}

int number(const std::string& key, int good)
{
    return std::stoi(setting(key, std::to_string(good)));
}

bool fault(const std::string& name)
{
    return setting("fault") == name;
}

void crashAt(const std::string& place)
{
    if (setting("crash") == place) {
        std::raise(SIGSEGV); // what a sanitizer has no part in
    }
}

struct Loaded {
    Loaded() { crashAt("load"); }
} loaded;

fmx::TextUniquePtr text(const std::string& utf8)
{
    fmx::TextUniquePtr result;
    result->AssignWithLength(utf8.data(), static_cast<fmx::uint32>(utf8.size()), fmx::Text::kEncoding_UTF8);
    return result;
}

std::string stringOf(int request)
{
    switch (request) {
    case kFMXT_NameStr:
        return setting("string", "Sample");
    case kFMXT_AppConfigStr:
        return "Does nothing, and that well.";
    case kFMXT_OptionsStr:
        return setting("options", "SMPL1nnYnnn");
    case kFMXT_HelpURLStr:
        return "https://example.com/help?function=";
    default:
        return "";
    }
}

void answerString(FMX_ExternCallStruct& record)
{
    crashAt("strings");
    auto* buffer = reinterpret_cast<fmx::unichar16*>(record.result); // NOLINT(performance-no-int-to-ptr): the interface
    const std::string answer = stringOf(record.parm1);
    const bool isName = record.parm1 == kFMXT_NameStr;
    std::size_t capacity = isName && fault("overrun") ? answer.size() + 1 : record.parm3;
    if (isName && fault("dropped")) {
        capacity = std::min(capacity, capacity < 256 ? std::size_t{1} : capacity);
    }
    const std::size_t length = capacity > answer.size() ? answer.size() : 0;
    std::copy_n(answer.begin(), length, buffer);
    buffer[length] = 0;
    if (isName && fault("unterminated")) {
        std::fill_n(buffer + length, capacity - length, ' ');
    }
}

errcode echo(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    result.SetAsText(arguments.AtAsText(0), *fmx::LocaleUniquePtr());
    return 0;
}

errcode count(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    result.SetAsNumber(*fmx::FixPtUniquePtr(static_cast<fmx::int32>(arguments.Size())));
    return 0;
}

errcode fail(short, const ExprEnv&, const DataVect& arguments, Data&)
{
    if (arguments.AtAsNumber(0).AsLong() == 1) {
        throw std::runtime_error("broken on purpose");
    }
    throw 42;
}

errcode errorCode(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    result.SetAsText(*text("left behind"), *fmx::LocaleUniquePtr());
    return static_cast<errcode>(arguments.AtAsNumber(0).AsLong());
}

errcode pauseFor(short, const ExprEnv&, const DataVect& arguments, Data&)
{
    std::fputs("pausing\n", stderr); // for who waits for it to have begun
    std::this_thread::sleep_for(std::chrono::duration<double>(arguments.AtAsNumber(0).AsFloat()));
    return 0;
}

errcode moment(short, const ExprEnv&, const DataVect&, Data& result)
{
    const fmx::DateTimeUniquePtr time;
    time->SetNormalizedDate(2, 29, 2024);
    time->SetNormalizedTime(13, 5, 9);
    result.SetAsTimeStamp(*time);
    return 0;
}

fmx::QuadCharUniquePtr owner()
{
    const std::string id = setting("id", "SMPL");
    return {id[0], id[1], id[2], id[3]};
}

constexpr int descriptionsSince = 56;
constexpr int scriptStepsSince = 57;

void addFunction(int apiVersion, int id, const std::string& name, const std::string& prototype, int minimum,
                 int maximum, fmx::ExtPluginType handler, const std::string& description = "words|Does nothing.")
{
    const auto number = static_cast<short>(id);
    const auto least = static_cast<short>(minimum);
    const auto most = static_cast<short>(maximum);
    if (apiVersion < descriptionsSince) {
        ExprEnv::RegisterExternalFunction(*owner(), number, *text(name), *text(prototype), least, most, 0xFF01,
                                          handler);
    } else {
        ExprEnv::RegisterExternalFunctionEx(*owner(), number, *text(name), *text(prototype), *text(description), least,
                                            most, 0xFF01, handler);
    }
}

constexpr const char* goodStep =
    R"(<?xml version="1.0"?><PluginStep><Parameter Type="target" Label="Results" ShowInline="true"/>)"
    R"(<Parameter Type="calc" Label="A" DataType="Text" ShowInline="true" ID="0"/><!-- two -->)"
    R"(<parameter type="list" label="B &amp; C" showinline="false" default="1" id="1"><value id="0">x</value>)"
    R"(<value id="1">y</value></parameter><Parameter Type="Bool" Label="D" Default="true" ID="12"></Parameter></PluginStep>)";

void registerAll(int apiVersion)
{
    addFunction(apiVersion, 1, "Smpl_Echo", "Smpl_Echo( value )", 1, 1, echo);
    addFunction(apiVersion, 2, "Smpl_Count", "Smpl_Count( {values…} )", 0, -1, count);
    addFunction(apiVersion, 4, "Smpl_Fail", "Smpl_Fail( how )", 1, 1, fail);
    addFunction(apiVersion, 5, "Smpl_ErrorCode", "Smpl_ErrorCode( code )", 1, 1, errorCode);
    addFunction(apiVersion, 6, "Smpl_Pause", "Smpl_Pause( seconds )", 1, 1, pauseFor);
    addFunction(apiVersion, 7, "Smpl_Moment", "Smpl_Moment", 0, 0, moment);
    const std::string name = setting("name", "Smpl_Odd");
    const std::string parameters = setting("parameters", "( größe )");
    const int arguments = parameters == "( größe )" ? 1 : 9;
    addFunction(apiVersion, number("function", 3), name, setting("prototype", name + parameters), arguments,
                number("maximum", arguments), count, setting("description", "words|Does nothing."));
    addFunction(apiVersion, 99, "Smpl_Größe", "Smpl_Größe", 0, 0, count);
    for (const int step : {1, number("step", 2)}) {
        if (apiVersion >= scriptStepsSince) {
            ExprEnv::RegisterScriptStep(*owner(), static_cast<short>(step), *text("Step"),
                                        *text(setting("definition", goodStep)), *text("Does nothing."), 0xFF01, echo);
        }
    }
}

void unregisterAll()
{
    for (short id = 1; id <= 99; ++id) {
        if (id != number("keeps function", 0)) {
            ExprEnv::UnRegisterExternalFunction(*owner(), id);
        }
        if (id != number("keeps step", 0)) {
            ExprEnv::UnRegisterScriptStep(*owner(), id);
        }
    }
}

void misbehaveAtStart(const std::string& how)
{
    if (how == "throw") {
        throw std::runtime_error("no start today");
    } else if (how == "throw anything") {
        throw 42;
    } else if (how == "abort") {
        std::fputs("going\n", stderr);
        std::abort();
    } else if (how == "exit") {
        std::_Exit(0);
    } else if (how == "hang") {
        while (true) {
            pause();
        }
    } else if (how == "go on in a copy") {
        if (fork() != 0) {
            std::_Exit(0);
        }
    } else if (how == "leave a process") {
        // It holds the pipe to the host, and the one that tells whether it lives.
        const int pipe = open(setting("pipe").c_str(), O_WRONLY);
        if (write(pipe, "x", 1) == 1 && fork() == 0) {
            pause();
        }
    } else if (how == "close") {
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, 3, 4, 5}) {
            close(descriptor);
        }
    } else if (how == "write") {
        std::fputs("{\"failure\":\"on standard output\"}\n", stdout);
        std::fflush(stdout);
        std::fputs("f and on standard error\n", stderr);
    } else if (how == "open") {
        static_cast<void>(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
}

FMX_PtrType startUp(int apiVersion)
{
    if (apiVersion < number("oldest", 50) || apiVersion > number("newest", 255) ||
        apiVersion == number("refused", -1)) {
        if (fault("registers all the same")) {
            registerAll(apiVersion);
        }
        return static_cast<FMX_PtrType>(-1);
    }
    crashAt("start");
    crashAt("start " + std::to_string(apiVersion));
    registerAll(apiVersion);
    misbehaveAtStart(setting("start"));
    return static_cast<FMX_PtrType>(number("answer", 62));
}

} // namespace

extern "C" FMX_API void FMExternCallProc(FMX_ExternCallPtr record)
{
    gFMX_ExternCallPtr = record;
    crashAt("message " + std::to_string(record->whichCall));
    switch (record->whichCall) {
    case kFMXT_Init:
        record->result = startUp(record->extnVersion);
        break;
    case kFMXT_Shutdown:
        if (fault("closes at the end")) {
            close(STDIN_FILENO);
        }
        unregisterAll();
        break;
    case kFMXT_GetString:
        answerString(*record);
        break;
    default:
        if (record->whichCall == number("changes result", -1) || fault("changes results")) {
            record->result = 0;
        } else if (record->whichCall == number("changes parameter", -1)) {
            record->parm1 = 1;
        } else if (record->whichCall == number("writes", -1)) {
            answerString(*record);
        }
        break;
    }
}
