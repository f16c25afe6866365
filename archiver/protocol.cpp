#include "archiver/protocol.h"

#include "archiver/failure.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace archiver {

namespace {

constexpr std::pair<std::string_view, Verb> verbs[] = {
    {"zip", Verb::zip},         {"zipencrypt", Verb::zipEncrypt}, {"unzip", Verb::unzip},
    {"encrypt", Verb::encrypt}, {"decrypt", Verb::decrypt},       {"unzipdecrypt", Verb::unzipDecrypt},
};

constexpr std::size_t fieldsBeforePassword = 5; // the verb counted

Verb verbNamed(std::string_view name)
{
    const auto* const found =
        std::find_if(std::begin(verbs), std::end(verbs), [name](const auto& verb) { return verb.first == name; });
    if (found == std::end(verbs)) {
        fail(Exit::usage, "unknown verb");
    }
    return found->second;
}

void requireItem(std::string_view folder, std::string_view name, Exit exit, const char* cause)
{
    const bool isName = !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
    if (!isName || !folder.starts_with('/') || !folder.ends_with('/')) {
        fail(exit, cause);
    }
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
    std::array<std::string_view, fieldsBeforePassword> fields;
    if (std::count(line.begin(), line.end(), '|') < std::ptrdiff_t{fields.size() - 1}) {
        fail(Exit::usage, "wrong number of fields");
    }
    std::size_t at = 0;
    for (std::string_view& field : fields) {
        field = line.substr(at, line.find('|', at) - at);
        at += field.size() + 1;
    }
    const auto [verb, sourceFolder, destinationFolder, sourceName, destinationName] = fields;
    const bool hasPassword = at <= line.size();

    Job job;
    job.verb = verbNamed(verb);
    if (hasPassword == (job.verb == Verb::zip || job.verb == Verb::unzip)) {
        fail(Exit::usage, "wrong number of fields");
    }
    if (hasPassword && at == line.size()) {
        fail(Exit::usage, "no password");
    }
    const bool expands = job.verb == Verb::unzip || job.verb == Verb::unzipDecrypt;
    if (expands && destinationName != "expand") {
        fail(Exit::usage, "the fourth field isn't \"expand\"");
    }
    requireItem(sourceFolder, sourceName, Exit::unusableSource, "the source isn't a name in an absolute folder");
    requireItem(destinationFolder, destinationName, Exit::unusableDestination,
                "the destination isn't a name in an absolute folder");
    job.sourceFolder = sourceFolder;
    job.sourceName = sourceName;
    job.destinationFolder = destinationFolder;
    job.destinationName = destinationName;
    job.password = line.substr(std::min(at, line.size()));
    return job;
}

} // namespace archiver
