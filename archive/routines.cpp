#include "archive/routines.h"

#include "archive/script_process.h"
#include "log/current_logger.h"

#include <array>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace archive {

namespace {

// A line in the log, of those routines that write some.
void trace(const Routine& routine, std::string_view line)
{
    if (!routine.tracedAs.empty()) {
        logging::writeLine(line);
    }
}

// The job's paths in their parts, the folders absolute.
struct Parts {
    PathText sourceFolder;
    PathText sourceName;
    PathText destinationFolder;
    PathText destinationName;
};

// Nothing when a path fails its check.
std::optional<Parts> split(const Routine& routine, const Job& job)
{
    trace(routine, "Getting path of the source");
    const PathText sourceFolder = getPathOfFilepath(job.source, routine.source);
    if (holdsPathErrorMarker(sourceFolder)) {
        trace(routine, "Got an error when trying to get source file path!");
        return std::nullopt;
    }
    trace(routine, "Getting name of the source");
    PathText sourceName = getFileNameOfFilepath(job.source, sourceFolder);

    trace(routine, "Getting path of the destination");
    const bool isBesideSource = routine.emptyMeansBesideSource && (job.destination.empty() || job.destination == u"/");
    const PathText destinationFolder =
        isBesideSource ? sourceFolder : getPathOfFilepath(job.destination, routine.destination);
    if (holdsPathErrorMarker(destinationFolder)) {
        trace(routine, "Got an error when trying to get destination file path!");
        return std::nullopt;
    }
    trace(routine, "Getting name of the destination");
    PathText destinationName = getFileNameOfFilepath(job.destination, destinationFolder);

    return Parts{transformIntoAbsolutePath(sourceFolder), std::move(sourceName),
                 transformIntoAbsolutePath(destinationFolder), std::move(destinationName)};
}

// "|" and each of the verb's fields, as they are: nothing is escaped. Nothing when a field that the script needs can't
// be converted; a command without it would be about another item.
std::optional<std::string> fieldsOf(const Routine& routine, const Parts& parts,
                                    const std::optional<std::u16string_view>& password)
{
    const std::array fields{
        CopyCFStringToCharPtr(parts.sourceFolder),
        CopyCFStringToCharPtr(parts.destinationFolder),
        CopyCFStringToCharPtr(parts.sourceName),
        routine.expands ? "expand" : CopyCFStringToCharPtr(parts.destinationName),
    };
    std::string text;
    for (const auto& field : fields) {
        if (!field) {
            return std::nullopt;
        }
        text.append("|").append(*field);
    }
    if (routine.password != PasswordField::none) {
        const auto field = CopyCFStringToCharPtr(password);
        if (!field && routine.password == PasswordField::required) {
            return std::nullopt;
        }
        text.append("|").append(field.value_or(""));
    }
    return text;
}

// A script on its way, or why there is none.
struct Start {
    Status status = status::success;
    std::shared_ptr<const void> file = nullptr; // keeps the script's file for as long as the shell may read it
    ScriptProcess process = nullptr;
};

Start start(const Routine& routine, const Job& job, const ScriptSetup& setup)
{
    const auto parts = split(routine, job);
    if (!parts) {
        return {routine.badPath};
    }
    trace(routine, "Converting paths and names to char* variables");
    const auto fields = fieldsOf(routine, *parts, job.password);

    trace(routine, "Getting bundle resource URL");
    const auto script = setup.script();
    if (!script) {
        trace(routine, "Error - Getting bundle resource URL or file system representation of the bundle");
        return {status::noScript};
    }
    trace(routine, script->path);
    if (!fields) {
        return {status::badParameters};
    }
    trace(routine, "No errors so far... Creating shell command");
    std::string command = "sh '";
    command.append(script->path).append("' '").append(routine.verb).append(*fields).append("'");
    trace(routine, command);

    ScriptProcess process = startScript(command);
    if (!process) {
        trace(routine, "Error - Failed to create the pipe to the shell script.");
    }
    // Not sleep(3): the SIGCHLD of a script that ends sooner would cut it short.
    std::this_thread::sleep_for(setup.pause);
    return {process ? status::success : status::badParameters, script->keep, std::move(process)};
}

} // namespace

Status runRoutine(const Routine& routine, const Job& job, const ScriptSetup& setup)
{
    std::optional<logging::FunctionTrace> traced;
    if (!routine.tracedAs.empty()) {
        traced.emplace(routine.tracedAs);
    }
    Start started = start(routine, job, setup);
    trace(routine, "Cleaning up all the variables");
    if (!started.process) {
        return started.status;
    }
    const ScriptEnding ending = waitForEnd(std::move(started.process));
    traced.reset();
    if (ending.status != 0 && !ending.report.empty()) {
        logging::writeLine("ZipFuncs.sh: " + ending.report);
    }
    return ending.status;
}

} // namespace archive
