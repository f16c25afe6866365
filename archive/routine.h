// What the eight routines of the bridge have in common: one job, described by a row of data, is handed to the archive
// script and waited for.
#pragma once

#include "archive/path_parts.h"
#include "platform/resources.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace archive {

// 0, one of the numbers below, or what pclose(3) answered: the script's wait status, 256 times its exit status.
// Where the host ignores SIGCHLD the system keeps no wait status and pclose answers -1: then it comes from the script's
// report (script_report.h), and is -1 only for a script that was killed.
using Status = std::int32_t;

namespace status {
inline constexpr Status success = 0;
inline constexpr Status badPath = 200;       // a path failed its check: routines for encrypted files
inline constexpr Status badPathOfZip = -1;   // the same: routines for plain archives
inline constexpr Status noScript = -43;      // Mac OS fnfErr: the script isn't in the bundle or has no path
inline constexpr Status badParameters = -50; // Mac OS paramErr: a field can't be written, or the shell can't be started
} // namespace status

enum class PasswordField {
    none,
    emptyWhenUnwritable, // a password that can't be converted travels as an empty field
    required
};

struct Routine {
    std::string_view verb;
    DotRule source;
    DotRule destination;
    Status badPath;
    PasswordField password = PasswordField::none;
    bool expands = false;                // field 4 is "expand" in place of the destination's name
    bool emptyMeansBesideSource = false; // a destination that is empty or "/" stands for the source's folder
    std::string_view tracedAs = {};      // the routine's name in the log; empty: it writes no lines
};

namespace routines {

inline constexpr Routine zipAFile{
    .verb = "zip",
    .source = DotRule::required,
    .destination = DotRule::required,
    .badPath = status::badPathOfZip,
    .tracedAs = "ZipAFile",
};
inline constexpr Routine zipAFolder{
    .verb = "zip",
    .source = DotRule::waived,
    .destination = DotRule::waived,
    .badPath = status::badPathOfZip,
};
inline constexpr Routine unzipAFile{
    .verb = "unzip",
    .source = DotRule::required,
    .destination = DotRule::waived,
    .badPath = status::badPathOfZip,
    .expands = true,
    .emptyMeansBesideSource = true,
};
inline constexpr Routine zipAndEncrypt{
    .verb = "zipencrypt",
    .source = DotRule::required,
    .destination = DotRule::required,
    .badPath = status::badPath,
    .password = PasswordField::emptyWhenUnwritable,
};
inline constexpr Routine zipAndEncryptFolder{
    .verb = "zipencrypt",
    .source = DotRule::waived,
    .destination = DotRule::required,
    .badPath = status::badPath,
    .password = PasswordField::emptyWhenUnwritable,
};
inline constexpr Routine unzipAndDecrypt{
    .verb = "unzipdecrypt",
    .source = DotRule::required,
    .destination = DotRule::waived,
    .badPath = status::badPath,
    .password = PasswordField::emptyWhenUnwritable,
    .expands = true,
};
inline constexpr Routine encryptTheFile{
    .verb = "encrypt",
    .source = DotRule::required,
    .destination = DotRule::required,
    .badPath = status::badPath,
    .password = PasswordField::required,
};
inline constexpr Routine decryptTheFile{
    .verb = "decrypt",
    .source = DotRule::required,
    .destination = DotRule::required,
    .badPath = status::badPath,
    .password = PasswordField::required,
};

} // namespace routines

struct Job {
    PathView source;
    PathView destination;
    std::optional<std::u16string_view> password = std::nullopt;
};

// Where the script comes from, and how long a routine pauses after having started it.
struct ScriptSetup {
    std::function<std::optional<platform::ResourceFile>()> script;
    std::chrono::milliseconds pause;
};

// Blocks for the pause, and until the script has ended.
Status runRoutine(const Routine& routine, const Job& job, const ScriptSetup& setup);

} // namespace archive
