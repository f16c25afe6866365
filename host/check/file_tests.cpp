// load, exports, libraries: the plug-in as a file.
#include "host/check/binary.h"
#include "host/check/server_libraries.h"
#include "host/check/tests.h"

#include <algorithm>
#include <array>
#include <set>
#include <vector>

namespace fmxhost::check {
namespace {

constexpr std::string_view entryPoint = "FMExternCallProc";

Binary libraryOf(const Examination& examination)
{
    return readBinary(PluginFile(examination.file()).library());
}

// Whether the library takes the place of Foundation, of AppKit or of their run-time, which every Mac has: only in
// builds of the macOS code for other systems, which no server gets.
bool standsForMacLibrary([[maybe_unused]] std::string_view library)
{
#ifdef FOLIDEX_COCOA
    constexpr std::array<std::string_view, 3> names{"libgnustep-base.so.", "libgnustep-gui.so.", "libobjc.so."};
    return std::any_of(names.begin(), names.end(),
                       [library](std::string_view name) { return library.starts_with(name); });
#else
    return false;
#endif
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
    std::vector<std::string> others = binary.exports;
    if (std::erase(others, entryPoint) == 0) {
        examination.fail("it doesn't export " + std::string(entryPoint));
    }
    constexpr std::size_t mostNamed = 8;
    const std::size_t named = others.size() <= mostNamed + 1 ? others.size() : mostNamed;
    for (std::size_t index = 0; index < named; ++index) {
        examination.fail("it exports " + others[index] + ", which may take the place of another plug-in's");
    }
    if (named < others.size()) {
        examination.fail("it exports " + std::to_string(others.size() - named) + " more");
    }
}

void examineLibraries(Examination& examination)
{
    const Binary binary = libraryOf(examination);
    for (const std::string& library : binary.neededLibraries) {
        if (standsForMacLibrary(library)) {
            examination.note("it needs " + library + ", which stands for one of macOS's in this build");
            continue;
        }
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
