// Exit statuses of fmxhost; scripts rely on them.
#pragma once

namespace fmxhost {

enum class ExitStatus : int {
    success = 0,
    calculationError = 1, // a calculation can't be parsed or evaluated
    checkFailed = 1,      // a test of "check" failed
    wrongUse = 2,         // of the command line, an unreadable file of calculations included
    pluginUnusable = 3,   // it can't be loaded or refuses to start
    pluginThrew = 4,      // an exception left the plug-in
    outputFailed = 5,     // what was to be written couldn't be (a full disk)
};

} // namespace fmxhost
