// The command that the archive functions hand to the shell, beside one put together by a plain reading of the paths,
// and what a shell makes of it.
//
// The linker replaces popen and pclose (see CMakeLists.txt), so that no command is run.
//
// Fields of an input: source, destination, password.
#include "fuzz/target.h"

#include "archive/path_parts.h"
#include "archive/routine.h"
#include "platform/desktop.h"

#include <algorithm>
#include <cstdio>

namespace {

using archive::DotRule;
using archive::PathText;
using archive::PathView;
using archive::Routine;
using archive::Status;

constexpr Status scriptStatus = 82 * 256;
const std::string scriptPath = "/a bundle/Resources/ZipFuncs.sh";
std::vector<std::string> commands; // that a shell would have got

} // namespace

// Names that ld's option --wrap asks for.
extern "C" std::FILE* __wrap_popen(const char* command, const char* mode); // NOLINT(bugprone-reserved-identifier)
extern "C" int __wrap_pclose(std::FILE* pipe);                             // NOLINT(bugprone-reserved-identifier)

std::FILE* __wrap_popen(const char* command, const char* mode)
{
    FUZZ_CHECK(std::string_view(mode) == "re");
    commands.emplace_back(command);
    return stdin; // never read: any will do
}

int __wrap_pclose(std::FILE* pipe)
{
    FUZZ_CHECK(pipe == stdin);
    return scriptStatus;
}

// Its dialog is no part of this.
bool platform::showAlert(std::string_view, std::string_view)
{
    return false;
}

namespace {

struct Expected {
    const Routine& routine;
    std::string verb;
    bool sourceNeedsDot;
    bool destinationNeedsDot;
    Status badPath;
    bool hasPassword = false;
    bool passwordMayFail = false;
    bool expands = false;
    bool besideSource = false;
};

const Expected all[] = {
    {archive::routines::zipAFile, "zip", true, true, -1},
    {archive::routines::zipAFolder, "zip", false, false, -1},
    {archive::routines::unzipAFile, "unzip", true, false, -1, false, false, true, true},
    {archive::routines::zipAndEncrypt, "zipencrypt", true, true, 200, true, true},
    {archive::routines::zipAndEncryptFolder, "zipencrypt", false, true, 200, true, true},
    {archive::routines::unzipAndDecrypt, "unzipdecrypt", true, false, 200, true, true, true},
    {archive::routines::encryptTheFile, "encrypt", true, true, 200, true},
    {archive::routines::decryptTheFile, "decrypt", true, true, 200, true},
};

// A path in two. Units of which the low 8 bits are those of "/" end folders, too.
struct Split {
    PathText folder;
    PathText name;
};

Split splitPath(PathView path)
{
    Split parts;
    for (const char16_t unit : path) {
        parts.name += unit;
        if (unit % 256 == u'/') {
            parts.folder += parts.name;
            parts.name.clear();
        }
    }
    return parts;
}

bool isMarked(PathText folder)
{
    std::transform(folder.begin(), folder.end(), folder.begin(), [](char16_t unit) {
        return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - u'a' + u'A') : unit;
    });
    return folder.find(u"!!ERROR!!") != PathText::npos;
}

bool isBad(PathView path, const PathText& folder, bool needsDot)
{
    return isMarked(folder) || (needsDot && path.find(u'.') == PathView::npos);
}

PathText absolute(const PathText& folder)
{
    const std::size_t slash = folder.find(u'/');
    return slash == PathText::npos ? PathText() : folder.substr(slash);
}

std::optional<std::string> field(PathView text)
{
    return text.find(u'\0') == PathView::npos ? fuzz::referenceUtf8(text) : std::nullopt;
}

// The script's argument, or the status of a job that runs nothing.
struct Answer {
    Status status = scriptStatus;
    std::string argument;
};

Answer expectedOf(const Expected& expected, const archive::Job& job)
{
    const Split source = splitPath(job.source);
    Split destination = splitPath(job.destination);
    const bool besideSource = expected.besideSource && (job.destination.empty() || job.destination == u"/");
    if (besideSource) {
        destination.folder = source.folder;
    }
    if (isBad(job.source, source.folder, expected.sourceNeedsDot) ||
        isBad(job.destination, destination.folder, expected.destinationNeedsDot)) {
        return {expected.badPath, {}};
    }
    const auto sourceFolder = field(absolute(source.folder));
    const auto destinationFolder = field(absolute(destination.folder));
    const auto sourceName = field(source.name);
    const auto destinationName = expected.expands ? "expand" : field(destination.name);
    const auto password = field(*job.password);
    const bool passwordIsMissing = expected.hasPassword && !expected.passwordMayFail && !password;
    if (!sourceFolder || !destinationFolder || !sourceName || !destinationName || passwordIsMissing) {
        return {archive::status::badParameters, {}};
    }
    Answer answer;
    answer.argument =
        expected.verb + "|" + *sourceFolder + "|" + *destinationFolder + "|" + *sourceName + "|" + *destinationName;
    if (expected.hasPassword) {
        answer.argument += "|" + password.value_or("");
    }
    return answer;
}

// The words of a simple command as a shell splits them (POSIX.1-2017, Shell Command Language, 2.2 and 2.3), without
// expansions; nothing when a quotation has no end or a sign stands unquoted that isn't part of a plain word.
std::optional<std::vector<std::string>> shellWords(std::string_view command)
{
    std::vector<std::string> words;
    bool inWord = false;
    for (std::size_t i = 0; i < command.size(); ++i) {
        const char sign = command[i];
        if (sign == ' ' || sign == '\t') {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (sign == '\'') {
            const std::size_t end = command.find('\'', i + 1);
            if (end == std::string_view::npos) {
                return std::nullopt;
            }
            words.back() += command.substr(i + 1, end - i - 1);
            i = end;
        } else if (std::string_view("|&;<>()$`\\\"*?[#~=%!{}\n").find(sign) != std::string_view::npos) {
            return std::nullopt;
        } else {
            words.back() += sign;
        }
    }
    return words;
}

void run(const Expected& expected, const archive::Job& job)
{
    const archive::ScriptSetup setup{[] {
                                         return platform::ResourceFile{scriptPath, nullptr};
                                     },
                                     std::chrono::milliseconds(0)};
    commands.clear();
    const Status status = archive::runRoutine(expected.routine, job, setup);
    const Answer answer = expectedOf(expected, job);
    FUZZ_CHECK(status == answer.status);
    FUZZ_CHECK(commands.size() == (status == scriptStatus ? 1 : 0));
    if (commands.empty()) {
        return;
    }
    // Nothing is escaped, as solutions rely on; a single quote ends the quotation. Without one the script gets what
    // it is meant to get, whatever else is in it.
    FUZZ_CHECK(commands[0] == "sh '" + scriptPath + "' '" + answer.argument + "'");
    if (answer.argument.find('\'') == std::string::npos) {
        FUZZ_CHECK(shellWords(commands[0]) == std::vector<std::string>{"sh", scriptPath, answer.argument});
    }
}

void pathParts(PathView path)
{
    const Split parts = splitPath(path);
    const bool hasDot = path.find(u'.') != PathView::npos;
    FUZZ_CHECK(archive::getLastSlashInPath(path) == parts.folder.size());
    FUZZ_CHECK(archive::getPathOfFilepath(path, DotRule::waived) == parts.folder);
    FUZZ_CHECK(archive::getPathOfFilepath(path, DotRule::required) == (hasDot ? parts.folder : u"!!ERROR!!"));
    FUZZ_CHECK(archive::getFileNameOfFilepath(path, parts.folder) == parts.name);
    FUZZ_CHECK(archive::transformIntoAbsolutePath(path) == absolute(PathText(path)));
    FUZZ_CHECK(archive::holdsPathErrorMarker(path) == isMarked(PathText(path)));
    FUZZ_CHECK(archive::CopyCFStringToCharPtr(path) == field(path));
}

} // namespace

void fuzz::test(std::string_view input)
{
    const auto parts = fields(input, 3);
    const PathText source = anyUnits(parts[0]);
    const PathText destination = anyUnits(parts[1]);
    const PathText password = anyUnits(parts[2]);
    pathParts(source);
    for (const Expected& expected : all) {
        run(expected, {source, destination, password});
    }
}
