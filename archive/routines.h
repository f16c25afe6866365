// The eight routines behind the archive functions: each hands one job to the archive script, the bundle's resource
// "ZipFuncs.sh", as one quoted argument "verb|field|field|…", and waits for it. They differ in a row of data.
//
// Paths are UTF-16 as typed, their folders made absolute (path_parts.h). Nothing in a path or password is escaped: a
// single quote or a "|" in it changes the command. Passwords travel on the script's command line.
//
// Each routine blocks for at least one second. Nothing depends on how the host treats SIGCHLD (see Status).
#pragma once

#include "archive/path_parts.h"
#include "platform/resources.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace archive {

// 0, one of the numbers below, or the script's wait status, 256 times its exit status (script_process.h).
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

constexpr DotRule dot = DotRule::required;
constexpr DotRule noDot = DotRule::waived;
constexpr PasswordField anyPassword = PasswordField::emptyWhenUnwritable;
constexpr PasswordField needed = PasswordField::required;
using namespace status;

inline constexpr Routine zipAFile{
    .verb = "zip", .source = dot, .destination = dot, .badPath = badPathOfZip, .tracedAs = "ZipAFile"};
inline constexpr Routine zipAFolder{.verb = "zip", .source = noDot, .destination = noDot, .badPath = badPathOfZip};
inline constexpr Routine unzipAFile{.verb = "unzip",
                                    .source = dot,
                                    .destination = noDot,
                                    .badPath = badPathOfZip,
                                    .expands = true,
                                    .emptyMeansBesideSource = true};
inline constexpr Routine zipAndEncrypt{
    .verb = "zipencrypt", .source = dot, .destination = dot, .badPath = badPath, .password = anyPassword};
inline constexpr Routine zipAndEncryptFolder{
    .verb = "zipencrypt", .source = noDot, .destination = dot, .badPath = badPath, .password = anyPassword};
inline constexpr Routine unzipAndDecrypt{.verb = "unzipdecrypt",
                                         .source = dot,
                                         .destination = noDot,
                                         .badPath = badPath,
                                         .password = anyPassword,
                                         .expands = true};
inline constexpr Routine encryptTheFile{
    .verb = "encrypt", .source = dot, .destination = dot, .badPath = badPath, .password = needed};
inline constexpr Routine decryptTheFile{
    .verb = "decrypt", .source = dot, .destination = dot, .badPath = badPath, .password = needed};

} // namespace routines

struct Job {
    PathView source;
    PathView destination;
    std::optional<std::u16string_view> password = std::nullopt;
};

// Where the script comes from, and how long a routine pauses after having started it: solutions see a second.
struct ScriptSetup {
    std::function<std::optional<platform::ResourceFile>()> script;
    std::chrono::milliseconds pause;
};

// Blocks for the pause, and until the script has ended.
Status runRoutine(const Routine& routine, const Job& job, const ScriptSetup& setup);

} // namespace archive
