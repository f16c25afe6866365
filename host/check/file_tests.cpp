// load, exports, libraries: the plug-in as a file.
#include "host/check/binary.h"
#include "host/check/server_libraries.h"
#include "host/check/tests.h"

#include <set>

namespace fmxhost::check {
namespace {

constexpr std::string_view entryPoint = "FMExternCallProc";

Binary libraryOf(const Examination& examination)
{
    return readBinary(PluginFile(examination.file()).library());
}

void examineSearchPath(const Examination& examination, const std::string& folder)
{
    if (isServerFolder(folder)) {
        return;
    }
    if (folder.starts_with("$ORIGIN") || folder.starts_with("${ORIGIN}") || folder.starts_with("@loader_path")) {
        examination.note("it looks for libraries beside itself, in " + folder +
                         ": \"Install Plug-In File\" copies the plug-in alone");
    } else if (folder.empty() || folder.front() != '/') {
        examination.fail("it looks for libraries in \"" + folder + "\" (RPATH): that is whichever folder is current");
    } else {
        examination.fail("it looks for libraries in " + folder + " (RPATH), a folder of the machine that built it");
    }
}

} // namespace

void examineLoading(Examination& examination)
{
    examination.step("loading it");
    Plugin::tryLoading(examination.file());
    examination.reach(Stage::loaded);
}

void examineExports(Examination& examination)
{
    const Binary binary = libraryOf(examination);
    bool found = false;
    for (const std::string& name : binary.exports) {
        if (name == entryPoint) {
            found = true;
        } else {
            examination.fail("it exports " + name + ", which may take the place of another plug-in's");
        }
    }
    if (!found) {
        examination.fail("it doesn't export " + std::string(entryPoint));
    }
}

void examineLibraries(Examination& examination)
{
    const Binary binary = libraryOf(examination);
    for (const std::string& library : binary.neededLibraries) {
        if (isServerLibrary(library)) {
            continue;
        }
        // "@rpath/" and the like aren't paths.
        const bool isPath = library.find('/') != std::string::npos && !library.starts_with('@');
        examination.fail("it needs " + library +
                         (isPath ? ", a path of the machine that built it" : ", which no plain server has"));
    }
    for (const NeededVersion& needed : binary.neededVersions) {
        if (const auto newest = newestVersionIfNewer(needed.version)) {
            examination.fail("it needs " + needed.version + " of " + needed.library + "; Ubuntu 22.04 has " + *newest);
        }
    }
    for (const std::string& folder : std::set<std::string>(binary.searchPaths.begin(), binary.searchPaths.end())) {
        examineSearchPath(examination, folder);
    }
}

} // namespace fmxhost::check
