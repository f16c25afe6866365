// What the tests of the query functions share: one text for whatever a call brings.
#pragma once

#include "support/plugin_under_test.h"

#include <string>
#include <string_view>
#include <vector>

// The result as FileMaker shows it; after a failure the code, and behind it the message as KORB_GetLastError has it.
inline std::string answer(const folidex::test::PluginUnderTest& plugin, std::string_view function,
                          const std::vector<fmxhost::Value>& arguments)
{
    const folidex::test::Result result = plugin.call(function, arguments);
    if (result.threw() || result.errorCode() != 0) {
        return "no orderly answer";
    }
    const int code = plugin.lastErrorNumber();
    if (result.isError() || code != 0) {
        return (result.isError() ? "" : "result without a failure ") + std::to_string(code) + " " +
               plugin.lastErrorText();
    }
    return result.utf8();
}
