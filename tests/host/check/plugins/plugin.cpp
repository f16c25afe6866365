// A plug-in that keeps every rule but the one that its file name names: what follows "bad_". "good" keeps them all.
// One source for all of them, so that what is wrong with each is the only difference.
#include <FMWrapper.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

FMX_ExternCallPtr gFMX_ExternCallPtr = nullptr;

// Of fault.cpp, which is compiled once for each plug-in.
extern "C" const char* const faultOfThisPlugin;

namespace {

using fmx::errcode;
using fmx::ExprEnv;

bool fault(std::string_view name)
{
    return name == faultOfThisPlugin;
}

template <class Type>
Type either(std::string_view name, Type faulty, Type right)
{
    return fault(name) ? faulty : right;
}

[[noreturn]] void crash()
{
    std::raise(SIGSEGV); // what a sanitizer has no part in
    std::abort();
}

// Loading.
struct Loaded {
    Loaded()
    {
        if (fault("load_crash")) {
            crash();
        }
    }
} loaded;

errcode answerNothing(short, const ExprEnv&, const fmx::DataVect&, fmx::Data&)
{
    return 0;
}

// Strings.

std::u16string optionsText()
{
    if (fault("options_length")) {
        return u"GOOD1nnYnn";
    }
    if (fault("options_character")) {
        return u"GOOD1nYYnnn";
    }
    if (fault("options_no_start")) {
        return u"GOOD1nnnnnn";
    }
    return fault("messages_idle") ? u"GOOD1nnYYnn" : u"GOOD1nnYnnn";
}

std::u16string textOf(int number)
{
    switch (number) {
    case kFMXT_NameStr:
        return either<std::u16string>("strings_no_name", u"", u"Good plug-in");
    case kFMXT_AppConfigStr:
        return u"Does nothing, and that well.";
    case kFMXT_OptionsStr:
        return optionsText();
    case kFMXT_HelpURLStr:
        return u"https://example.com/help?function=";
    default:
        return u"";
    }
}

void answerString(FMX_ExternCallStruct& record)
{
    if (fault("strings_crash")) {
        crash();
    }
    auto* buffer = reinterpret_cast<fmx::unichar16*>(record.result); // NOLINT(performance-no-int-to-ptr): the interface
    const std::u16string text = textOf(record.parm1);
    const bool isName = record.parm1 == kFMXT_NameStr;
    std::size_t capacity = record.parm3;
    if (isName && fault("strings_overrun")) {
        capacity = text.size() + 1;
    }
    if (isName && fault("strings_dropped") && capacity < 256) {
        capacity = 1;
    }
    const std::size_t length = capacity > text.size() ? text.size() : 0;
    std::copy_n(text.begin(), length, buffer);
    if (isName && fault("strings_unterminated")) {
        std::fill_n(buffer + length, capacity - length, u' ');
    } else {
        buffer[length] = 0;
    }
}

// Start-up.

struct Function {
    short id;
    std::u16string name;
    std::u16string prototype;
    short minimum;
    short maximum;
    std::u16string description = u"words|Does nothing.";
};

std::vector<Function> functions()
{
    std::vector<Function> table{{1, u"Good_None", u"Good_None", 0, 0},
                                {2, u"Good_Empty", u"Good_Empty()", 0, 0},
                                {3, u"Good_Some", u"Good_Some( a ; b {; c {; d } } )", 2, 4},
                                {4, u"Good_Optional", u"Good_Optional ( { a ; b } )", 0, 2},
                                {5, u"Good_Many", u"Good_Many( a {; more… } )", 1, -1},
                                {6, u"Good_Lists", u"Good_Lists( test ; result {; test2 ; result2 ; ... } )", 2, -1},
                                {7, u"Good_Größe", u"Good_Größe( größe )", 1, 1}};
    Function& last = table.back();
    if (fault("names_empty")) {
        last.name.clear();
        last.prototype.clear();
    } else if (fault("names_blank")) {
        last.name = u"Good name";
        last.prototype = u"Good name( a )";
    } else if (fault("names_twice")) {
        last.name = u"GOOD_Some";
        last.prototype = u"GOOD_Some( a )";
    } else if (fault("prototypes_name")) {
        last.prototype = u"Good_Other( a )";
    } else if (fault("prototypes_longer")) {
        last.prototype = u"Good_Größer( a )";
    } else if (fault("prototypes_minimum")) {
        last.prototype = u"Good_Größe( { a } )";
    } else if (fault("prototypes_maximum")) {
        last.prototype = u"Good_Größe( a {; b } )";
    } else if (fault("prototypes_any")) {
        last.maximum = -1;
    } else if (fault("prototypes_brace")) {
        last.prototype = u"Good_Größe( a {; b )";
    } else if (fault("prototypes_separator")) {
        last.prototype = u"Good_Größe( a ; )";
    } else if (fault("descriptions_none")) {
        last.description.clear();
    } else if (fault("descriptions_words")) {
        last.description = u"words|";
    } else if (fault("ids_function")) {
        last.id = 3;
    }
    return table;
}

constexpr const char* goodStep =
    R"(<?xml version="1.0"?><PluginStep><Parameter Type="target" Label="Results" ShowInline="true"/>)"
    R"(<Parameter Type="calc" Label="A" DataType="Text" ShowInline="true" ID="0"/><!-- two -->)"
    R"(<parameter type="list" label="B &amp; C" showinline="false" default="1" id="1"><value id="0">x</value>)"
    R"(<value id="1">y</value></parameter><Parameter Type="Bool" Label="D" Default="true" ID="12"></Parameter></PluginStep>)";

std::string stepDefinition()
{
    struct Faulty {
        std::string_view name;
        const char* definition;
    };
    constexpr std::array<Faulty, 13> all{{
        {"steps_empty", ""},
        {"steps_not_closed", R"(<PluginStep><Parameter Type="calc" Label="A" ID="0"></PluginStep>)"},
        {"steps_attribute", R"(<PluginStep Colour="red"/>)"},
        {"steps_data_type", R"(<PluginStep><Parameter Type="calc" DataType="colour" Label="A" ID="0"/></PluginStep>)"},
        {"steps_no_values", R"(<PluginStep><Parameter Type="list" Label="A" ID="0"/></PluginStep>)"},
        {"steps_two_roots", "<PluginStep/><PluginStep/>"},
        {"steps_root", "<Step/>"},
        {"steps_element", R"(<PluginStep><Field Type="calc" Label="A" ID="0"/></PluginStep>)"},
        {"steps_type", R"(<PluginStep><Parameter Type="text" Label="A" ID="0"/></PluginStep>)"},
        {"steps_no_id", R"(<PluginStep><Parameter Type="calc" Label="A"/></PluginStep>)"},
        {"steps_same_ids",
         R"(<PluginStep><Parameter Type="calc" Label="A" ID="1"/><Parameter Type="bool" Label="B" ID="1"/></PluginStep>)"},
        {"steps_same_values",
         R"(<PluginStep><Parameter Type="list" Label="A" ID="1"><Value ID="0">a</Value><Value ID="0">b</Value></Parameter></PluginStep>)"},
        {"steps_two_targets",
         R"(<PluginStep><Parameter Type="target" Label="A"/><Parameter Type="TARGET" Label="B"/></PluginStep>)"},
    }};
    for (const Faulty& faulty : all) {
        if (fault(faulty.name)) {
            return faulty.definition;
        }
    }
    return goodStep;
}

fmx::TextUniquePtr text(std::u16string_view units)
{
    fmx::TextUniquePtr result;
    result->AssignUnicodeWithLength(reinterpret_cast<const fmx::uint16*>(units.data()),
                                    static_cast<fmx::uint32>(units.size()));
    return result;
}

fmx::QuadCharUniquePtr pluginId()
{
    return {'G', 'O', 'O', fault("options_id") ? 'F' : 'D'};
}

constexpr int descriptionsSince = 56;
constexpr int scriptStepsSince = 57;

void registerAll(int apiVersion)
{
    const auto id = pluginId();
    for (const Function& function : functions()) {
        const auto name = text(function.name);
        const auto prototype = text(function.prototype);
        if (apiVersion < descriptionsSince) {
            ExprEnv::RegisterExternalFunction(*id, function.id, *name, *prototype, function.minimum, function.maximum,
                                              0xFF01, answerNothing);
        } else {
            ExprEnv::RegisterExternalFunctionEx(*id, function.id, *name, *prototype, *text(function.description),
                                                function.minimum, function.maximum, 0xFF01, answerNothing);
        }
    }
    if (apiVersion < scriptStepsSince) {
        return;
    }
    const fmx::TextUniquePtr definition;
    definition->Assign(stepDefinition().c_str(), fmx::Text::kEncoding_UTF8);
    for (const short step : {short{1}, either<short>("ids_step", 1, 2)}) {
        ExprEnv::RegisterScriptStep(*id, step, *text(u"Good step"), *definition, *text(u"Does nothing."), 0xFF01,
                                    answerNothing);
    }
}

void unregisterAll(int apiVersion)
{
    const auto id = pluginId();
    for (const Function& function : functions()) {
        if (!(function.id == 4 && fault("shutdown_function"))) {
            ExprEnv::UnRegisterExternalFunction(*id, function.id);
        }
    }
    if (apiVersion >= scriptStepsSince && !fault("shutdown_step")) {
        ExprEnv::UnRegisterScriptStep(*id, 1);
        ExprEnv::UnRegisterScriptStep(*id, 2);
    }
}

// A process that outlives the one that started it, in a session of its own.
void leaveDaemon()
{
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        if (fork() == 0) {
            sleep(60);
        }
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

void leak()
{
    if (fault("leak_memory")) {
        auto* volatile forgotten = std::malloc(16); // sanitizers count less as less
        static_cast<void>(forgotten);
    } else if (fault("leak_process")) {
        leaveDaemon();
    } else if (fault("leak_descriptor")) {
        static_cast<void>(open("/dev/null", O_RDONLY | O_CLOEXEC));
    } else if (fault("leak_mapping")) {
        static_cast<void>(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
}

void misbehaveAtStart(int apiVersion)
{
    if (fault("start_throws")) {
        throw std::runtime_error("no start today");
    }
    if (fault("start_throws_anything")) {
        throw 42;
    }
    if (fault("start_crash") || (fault("start_crash_56") && apiVersion == 56)) {
        crash();
    }
    if (fault("start_abort")) {
        std::fputs("going\n", stderr);
        std::abort();
    }
    if (fault("start_exit")) {
        std::_Exit(0);
    }
    if (fault("start_hang")) {
        while (true) {
            pause();
        }
    }
    if (fault("start_forks") && fork() != 0) {
        std::_Exit(0); // and the child goes on as the host
    }
    if (fault("start_closes")) {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
    }
    if (fault("chatty")) {
        std::puts("{\"failure\":\"on standard output\"}");
        std::fflush(stdout);
        std::fputs("and on standard error\n", stderr);
    }
    leak();
}

FMX_PtrType startUp(int apiVersion)
{
    const bool inRange = apiVersion >= either("range_below", 49, 50) && apiVersion <= either("range_above", 256, 255);
    if (!inRange || (fault("start_refuses_51") && apiVersion == 51)) {
        if (fault("range_registers")) {
            registerAll(apiVersion);
        }
        return static_cast<FMX_PtrType>(-1);
    }
    misbehaveAtStart(apiVersion);
    registerAll(apiVersion);
    return either<FMX_PtrType>("start_no_answer", 0, 62);
}

void onUnknown(FMX_ExternCallStruct& record)
{
    if (fault("messages_result")) {
        record.result = 0;
    } else if (fault("messages_parameter") && record.whichCall == 200) {
        record.parm1 = 1;
    } else if (fault("messages_buffer") && record.whichCall == 11) {
        answerString(record);
    } else if (fault("messages_crash") && record.whichCall == 3) {
        crash();
    }
}

} // namespace

extern "C" FMX_API void FMExternCallProc(FMX_ExternCallPtr record)
{
    gFMX_ExternCallPtr = record;
    switch (record->whichCall) {
    case kFMXT_Init:
        record->result = startUp(record->extnVersion);
        break;
    case kFMXT_Shutdown:
        if (fault("shutdown_crash")) {
            crash();
        }
        unregisterAll(record->extnVersion);
        break;
    case kFMXT_GetString:
        answerString(*record);
        break;
    case kFMXT_Idle:
        if (fault("messages_idle")) {
            crash();
        }
        break;
    case kFMXT_DoAppPreferences:
        if (fault("messages_preferences")) {
            record->result = 0;
        }
        break;
    case kFMXT_SessionShutdown:
    case kFMXT_FileShutdown:
        break;
    default:
        onUnknown(*record);
        break;
    }
}
