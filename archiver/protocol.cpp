#include "archiver/protocol.h"

#include "archiver/failure.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace archiver {

namespace {

struct VerbName {
    std::string_view name;
    Verb verb;
};
constexpr VerbName verbs[] = {
    {"zip", Verb::zip},         {"zipencrypt", Verb::zipEncrypt}, {"unzip", Verb::unzip},
    {"encrypt", Verb::encrypt}, {"decrypt", Verb::decrypt},       {"unzipdecrypt", Verb::unzipDecrypt},
};

constexpr std::size_t fieldsBeforePassword = 5; // the verb counted

Verb verbNamed(std::string_view name)
{
    const auto* const found =
        std::find_if(std::begin(verbs), std::end(verbs), [name](const VerbName& verb) { return verb.name == name; });
    if (found == std::end(verbs)) {
        fail(Exit::usage, "unknown verb");
    }
    return found->verb;
}

std::string folderField(std::string_view field, Exit exit, const char* cause)
{
    if (!field.starts_with('/') || !field.ends_with('/')) {
        fail(exit, cause);
    }
    return std::string(field);
}

std::string nameField(std::string_view field, Exit exit, const char* cause)
{
    if (field.empty() || field == "." || field == ".." || field.find('/') != std::string_view::npos) {
        fail(exit, cause);
    }
    return std::string(field);
}

} // namespace

std::size_t lengthWithoutPassword(std::string_view line)
{
    std::size_t at = 0;
    for (std::size_t field = 0; field < fieldsBeforePassword; ++field) {
        at = line.find('|', at);
        if (at == std::string_view::npos) {
            return line.size();
        }
        ++at;
    }
    return at;
}

Job parseJob(std::string_view line)
{
    const std::size_t length = lengthWithoutPassword(line);
    const bool hasPassword = std::count(line.begin(), line.end(), '|') >= std::ptrdiff_t{fieldsBeforePassword};
    std::array<std::string_view, fieldsBeforePassword> fields;
    std::string_view rest = line.substr(0, hasPassword ? length - 1 : length);
    for (std::size_t number = 0; number < fields.size(); ++number) {
        const std::size_t end = number + 1 < fields.size() ? rest.find('|') : rest.size();
        if (end == std::string_view::npos) {
            fail(Exit::usage, "wrong number of fields");
        }
        fields.at(number) = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    const auto [verb, sourceFolder, destinationFolder, sourceName, destinationName] = fields;

    Job job;
    job.verb = verbNamed(verb);
    if (hasPassword == (job.verb == Verb::zip || job.verb == Verb::unzip)) {
        fail(Exit::usage, "wrong number of fields");
    }
    if (hasPassword && length == line.size()) {
        fail(Exit::usage, "no password");
    }
    const bool expands = job.verb == Verb::unzip || job.verb == Verb::unzipDecrypt;
    if (expands && destinationName != "expand") {
        fail(Exit::usage, "the fourth field isn't \"expand\"");
    }
    constexpr const char* noSource = "the source isn't a name in an absolute folder";
    constexpr const char* noDestination = "the destination isn't a name in an absolute folder";
    job.sourceFolder = folderField(sourceFolder, Exit::unusableSource, noSource);
    job.sourceName = nameField(sourceName, Exit::unusableSource, noSource);
    job.destinationFolder = folderField(destinationFolder, Exit::unusableDestination, noDestination);
    job.destinationName = nameField(destinationName, Exit::unusableDestination, noDestination);
    job.password = line.substr(length);
    return job;
}

} // namespace archiver
