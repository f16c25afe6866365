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

// The routine's lines in the log.
class Trace {
public:
    explicit Trace(std::string_view name)
    {
        if (!name.empty()) {
            function_.emplace(name);
        }
    }
    void line(std::string_view text) const
    {
        if (function_) {
            logging::writeLine(text);
        }
    }

private:
    std::optional<logging::FunctionTrace> function_;
};

// The job's paths in their parts, the folders absolute.
struct Parts {
    PathText sourceFolder;
    PathText sourceName;
    PathText destinationFolder;
    PathText destinationName;
};

PathText destinationFolderOf(const Routine& routine, PathView destination, const PathText& sourceFolder)
{
    if (routine.emptyMeansBesideSource && (destination.empty() || destination == u"/")) {
        return sourceFolder;
    }
    return getPathOfFilepath(destination, routine.destination);
}

// Nothing when a path fails its check.
std::optional<Parts> split(const Routine& routine, const Job& job, const Trace& trace)
{
    trace.line("Getting path of the source");
    const PathText sourceFolder = getPathOfFilepath(job.source, routine.source);
    if (holdsPathErrorMarker(sourceFolder)) {
        trace.line("Got an error when trying to get source file path!");
        return std::nullopt;
    }
    trace.line("Getting name of the source");
    PathText sourceName = getFileNameOfFilepath(job.source, sourceFolder);

    trace.line("Getting path of the destination");
    const PathText destinationFolder = destinationFolderOf(routine, job.destination, sourceFolder);
    if (holdsPathErrorMarker(destinationFolder)) {
        trace.line("Got an error when trying to get destination file path!");
        return std::nullopt;
    }
    trace.line("Getting name of the destination");
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
    std::shared_ptr<const void> script = nullptr; // keeps the script's file for as long as the shell may read it
    std::optional<ScriptProcess> process = std::nullopt;
};

Start start(const Routine& routine, const Job& job, const ScriptSetup& setup, const Trace& trace)
{
    const auto parts = split(routine, job, trace);
    if (!parts) {
        return {routine.badPath};
    }
    trace.line("Converting paths and names to char* variables");
    const auto fields = fieldsOf(routine, *parts, job.password);

    trace.line("Getting bundle resource URL");
    const auto script = setup.script();
    if (!script) {
        trace.line("Error - Getting bundle resource URL or file system representation of the bundle");
        return {status::noScript};
    }
    trace.line(script->path);
    if (!fields) {
        return {status::badParameters};
    }
    trace.line("No errors so far... Creating shell command");
    std::string command = "sh '";
    command.append(script->path).append("' '").append(routine.verb).append(*fields).append("'");
    trace.line(command);

    Start started{status::success, script->keep, ScriptProcess(command)};
    if (!*started.process) {
        trace.line("Error - Failed to create the pipe to the shell script.");
        started = {status::badParameters};
    }
    // Not sleep(3): the SIGCHLD of a script that ends sooner would cut it short.
    std::this_thread::sleep_for(setup.pause);
    return started;
}

} // namespace

Status runRoutine(const Routine& routine, const Job& job, const ScriptSetup& setup)
{
    ScriptProcess::Ending ending;
    {
        const Trace trace(routine.tracedAs);
        Start started = start(routine, job, setup, trace);
        trace.line("Cleaning up all the variables");
        if (!started.process) {
            return started.status;
        }
        ending = started.process->wait();
    }
    if (ending.status != 0 && !ending.report.empty()) {
        logging::writeLine("ZipFuncs.sh: " + ending.report);
    }
    return ending.status;
}

Status runRoutine(const Routine& routine, const Job& job, platform::Bundle bundle)
{
    return runRoutine(routine, job,
                      {[bundle] { return platform::resourceFile(bundle, "ZipFuncs", "sh"); }, std::chrono::seconds(1)});
}

} // namespace archive
