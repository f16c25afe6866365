#include "support/plugin_under_test.h"

#include "host/base/unicode.h"

#include <cstdlib>
#include <stdexcept>

namespace folidex::test {
namespace {

std::string describe(const PluginUnderTest& plugin, const Result& result)
{
    if (result.threw()) {
        return "threw " + result.exception();
    }
    return "result \"" + result.utf8() + "\", handler's code " + std::to_string(result.errorCode()) + ", last error " +
           std::to_string(plugin.lastErrorNumber()) + " \"" + plugin.lastErrorText() + "\"";
}

} // namespace

std::filesystem::path pluginFile()
{
    const char* file = std::getenv("FOLIDEX_PLUGIN");
    return file != nullptr && *file != '\0' ? file : FOLIDEX_PLUGIN_FILE;
}

Result PluginUnderTest::call(std::string_view function, const std::vector<fmxhost::Value>& arguments) const
{
    return Result(plugin_.call(fmxhost::toUtf16(function), arguments));
}

int PluginUnderTest::lastErrorNumber() const
{
    const std::string text = call("KORB_GetLastError", {u"number"}).utf8();
    std::size_t used = 0;
    const int number = std::stoi(text, &used);
    if (used != text.size()) {
        throw std::runtime_error("not an error number: " + text);
    }
    return number;
}

bool PluginUnderTest::hasFunction(std::string_view name) const
{
    return plugin_.find(fmxhost::toUtf16(name)) != nullptr;
}

testing::AssertionResult succeeded(const PluginUnderTest& plugin, const Result& result)
{
    const bool holds = !result.threw() && result.errorCode() == 0 && !result.isError() && plugin.lastErrorNumber() == 0;
    return holds ? testing::AssertionSuccess() : testing::AssertionFailure() << describe(plugin, result);
}

testing::AssertionResult failedWith(int code, const PluginUnderTest& plugin, const Result& result)
{
    const bool holds =
        !result.threw() && result.errorCode() == 0 && result.isError() && plugin.lastErrorNumber() == code;
    return holds ? testing::AssertionSuccess()
                 : testing::AssertionFailure() << "not " << code << ": " << describe(plugin, result);
}

} // namespace folidex::test
