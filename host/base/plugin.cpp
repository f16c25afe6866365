#include "host/base/plugin.h"

#include "host/base/unicode.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <system_error>
#include <typeinfo>
#include <utility>

namespace fmxhost {
namespace {

// The exception that is being handled, as one line. Its object may go with the plug-in's code, the text stays.
std::string describeCurrentException()
{
    const std::type_info* type = abi::__cxa_current_exception_type();
    const char* const mangled = type != nullptr ? type->name() : "a foreign exception"; // which isn't demangled
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> demangled(abi::__cxa_demangle(mangled, nullptr, nullptr, &status),
                                                                &std::free);
    std::string name = demangled ? demangled.get() : mangled;
    try {
        throw;
    } catch (const std::exception& exception) {
        const std::string text = exception.what();
        return text.empty() || text == name ? name : name + " (" + text + ")";
    } catch (...) {
        return name;
    }
}

std::string messageName(Message message)
{
    static const std::map<Message, std::string> names{{Message::startUp, "the start-up message"},
                                                      {Message::shutDown, "the shut-down message"},
                                                      {Message::stringRequest, "a string request"}};
    const auto named = names.find(message);
    return named != names.end() ? named->second : "message " + std::to_string(static_cast<int>(message));
}

} // namespace

Plugin::Plugin(const std::filesystem::path& file, std::int16_t apiVersion)
    : file_(std::filesystem::absolute(file)), onDisk_(file_)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(onDisk_.library, error)) {
        throw PluginError(PluginError::Kind::notLoaded, "There is no plug-in file " + file_.string());
    }
    library_.reset(dlopen(onDisk_.library.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (!library_) {
        const char* reason = dlerror();
        throw PluginError(PluginError::Kind::notLoaded,
                          "The plug-in can't be loaded: " + (reason != nullptr ? std::string(reason) : file_.string()));
    }
    entryPoint_ = reinterpret_cast<EntryPoint>(dlsym(library_.get(), "FMExternCallProc"));
    if (entryPoint_ == nullptr) {
        throw PluginError(PluginError::Kind::notLoaded,
                          file_.string() + " is not a plug-in: it has no entry point FMExternCallProc");
    }
    record_.extnVersion = apiVersion;
    record_.unusedID = -1;
    record_.entryPoint = entryPoint_;
    record_.instanceID = onDisk_.instance.get();
}

Plugin::~Plugin()
{
    try {
        unload();
    } catch (const std::exception&) {
        // Whoever wants to know calls unload().
    }
}

const std::u16string& Plugin::options()
{
    if (!options_) {
        options_ = string(PluginString::options);
    }
    return *options_;
}

std::int64_t Plugin::start()
{
    if (!wantsStartUp()) {
        return 0;
    }
    static std::array<fmx::unichar16, 8> applicationVersion{'1', '9', '.', '0', '.', '0', 0, 0};
    const auto answer =
        static_cast<std::int64_t>(send(Message::startUp, 0, reinterpret_cast<fmx::ptrtype>(applicationVersion.data())));
    functions_ = fmxkit::externalFunctions();
    scriptSteps_ = fmxkit::scriptSteps();
    if (answer < 0) {
        throw PluginError(PluginError::Kind::refused, "The plug-in refuses to start on API version " +
                                                          std::to_string(record_.extnVersion) + " (it returned " +
                                                          std::to_string(answer) + ")");
    }
    running_ = true;
    return answer;
}

void Plugin::shutDown()
{
    running_ = false;
    send(Message::shutDown);
}

std::size_t Plugin::unload()
{
    if (!library_) {
        return 0;
    }
    std::exception_ptr failure;
    if (running_) {
        try {
            shutDown();
        } catch (const PluginError&) {
            failure = std::current_exception();
        }
    }
    functions_.clear();
    scriptSteps_.clear();
    const std::size_t left = fmxkit::purge();
    library_.reset();
    if (failure) {
        std::rethrow_exception(failure);
    }
    return left;
}

std::u16string Plugin::string(PluginString number, std::uint32_t capacity)
{
    constexpr fmx::ptrtype english = 0;
    // Plug-ins write a zero even into a capacity of 0, and bad ones a little beside their buffer.
    constexpr std::size_t margin = 64;
    std::u16string buffer(margin + capacity + margin, u'\0');
    send(Message::stringRequest, static_cast<std::uint8_t>(number), english, capacity,
         reinterpret_cast<fmx::ptrtype>(buffer.data() + margin));
    const std::u16string_view answer(buffer.data() + margin, capacity);
    return std::u16string(answer.substr(0, answer.find(u'\0')));
}

fmx::ptrtype Plugin::send(Message message, std::uint8_t parameter1, fmx::ptrtype parameter2, fmx::ptrtype parameter3,
                          fmx::ptrtype result)
{
    record_.whichCall = static_cast<unsigned char>(message);
    record_.parm1 = parameter1;
    record_.parm2 = parameter2;
    record_.parm3 = parameter3;
    record_.result = result;
    try {
        entryPoint_(&record_);
    } catch (...) {
        throw PluginError(PluginError::Kind::exception, "An exception left the plug-in at " + messageName(message) +
                                                            ": " + describeCurrentException());
    }
    return record_.result;
}

const fmxkit::ExternalFunction& Plugin::function(std::u16string_view name) const
{
    const std::u16string folded = foldCase(name);
    for (const fmxkit::ExternalFunction& function : functions_) {
        if (foldCase(function.name) == folded) {
            return function;
        }
    }
    throw std::out_of_range("no function " + toUtf8(name));
}

CallOutcome Plugin::call(const fmxkit::ExternalFunction& function, const std::vector<Value>& arguments)
{
    const fmx::ExprEnvUniquePtr environment;
    const fmx::DataVectUniquePtr vector;
    for (const Value& argument : arguments) {
        vector->PushBack(argument.data());
    }
    fmx::DataUniquePtr result;
    CallOutcome outcome;
    try {
        outcome.error = function.handler(function.id, *environment, *vector, *result);
    } catch (...) {
        outcome.exception = describeCurrentException();
        return outcome;
    }
    outcome.value = Value(std::move(result));
    return outcome;
}

} // namespace fmxhost
