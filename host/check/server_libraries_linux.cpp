#include "host/check/server_libraries.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace fmxhost::check {
namespace {

struct Library {
    std::string_view name;
    std::string_view why; // who brings it
};

// FileMaker Server's systems are Ubuntu 22.04 and 24.04. What stands here is in both, under the same name, in packages
// that are essential or that essential ones, apt and systemd depend on: no administrator can be without them.
constexpr std::array<Library, 37> libraries{{
    {"libFMWrapper.so", "FileMaker Server, in /opt/FileMaker/lib"},
    {"ld-linux-x86-64.so.2", "libc6"},
    {"ld-linux-aarch64.so.1", "libc6"},
    {"libc.so.6", "libc6"},
    {"libm.so.6", "libc6"},
    {"libpthread.so.0", "libc6"},
    {"libdl.so.2", "libc6"},
    {"librt.so.1", "libc6"},
    {"libresolv.so.2", "libc6"},
    {"libutil.so.1", "libc6"},
    {"libanl.so.1", "libc6"},
    {"libnsl.so.1", "libc6"},
    {"libmvec.so.1", "libc6"},
    {"libcrypt.so.1", "libcrypt1: login"},
    {"libgcc_s.so.1", "libgcc-s1: libc6"},
    {"libstdc++.so.6", "libstdc++6: apt"},
    {"libmount.so.1", "libmount1: mount, util-linux"},
    {"libblkid.so.1", "libblkid1: util-linux"},
    {"libuuid.so.1", "libuuid1: util-linux"},
    {"libsmartcols.so.1", "libsmartcols1: util-linux"},
    {"libselinux.so.1", "libselinux1: coreutils, tar"},
    {"libpcre2-8.so.0", "libpcre2-8-0: libselinux1"},
    {"libacl.so.1", "libacl1: coreutils, tar"},
    {"libattr.so.1", "libattr1: coreutils"},
    {"libgmp.so.10", "libgmp10: coreutils"},
    {"libcap.so.2", "libcap2: systemd"},
    {"libcrypto.so.3", "libssl3: systemd"},
    {"libssl.so.3", "libssl3: systemd"},
    {"libz.so.1", "zlib1g: dpkg"},
    {"libbz2.so.1.0", "libbz2-1.0: dpkg"},
    {"liblzma.so.5", "liblzma5: dpkg"},
    {"libzstd.so.1", "libzstd1: dpkg"},
    {"liblz4.so.1", "liblz4-1: libsystemd0"},
    {"libtinfo.so.6", "libtinfo6: bash"},
    {"libsystemd.so.0", "libsystemd0: util-linux"},
    {"libudev.so.1", "libudev1: util-linux"},
    {"libaudit.so.1", "libaudit1: libpam-modules"},
}};

// Of the older system, Ubuntu 22.04: glibc 2.35, GCC 12's libraries, util-linux 2.37.
constexpr std::array<std::string_view, 5> newestVersions{"GLIBC_2.35", "GLIBCXX_3.4.30", "CXXABI_1.3.13", "GCC_12.0.0",
                                                         "MOUNT_2.37"};

// A glibc before 2.36 refuses a library that has this among its needs: packed relative relocations.
constexpr std::string_view packedRelocations = "GLIBC_ABI_DT_RELR";

// "GLIBC_" of "GLIBC_2.35"; empty where no number follows.
std::string_view kindOf(std::string_view version)
{
    const std::size_t digit = version.find_first_of("0123456789");
    return digit == std::string_view::npos ? std::string_view() : version.substr(0, digit);
}

std::vector<int> numbersOf(std::string_view version)
{
    std::vector<int> numbers;
    const char* place = version.data();
    const char* const end = place + version.size();
    while (place < end) {
        int number = 0;
        const auto [after, error] = std::from_chars(place, end, number);
        if (error != std::errc()) {
            break;
        }
        numbers.push_back(number);
        place = after + 1; // a full stop, or an underscore
    }
    return numbers;
}

} // namespace

bool isServerLibrary(std::string_view name)
{
    return std::any_of(libraries.begin(), libraries.end(),
                       [name](const Library& library) { return library.name == name; });
}

std::optional<std::string> newestVersionIfNewer(std::string_view version)
{
    if (version == packedRelocations) {
        return std::string(newestVersions.front());
    }
    const std::string_view kind = kindOf(version);
    for (const std::string_view newest : newestVersions) {
        if (kind == kindOf(newest) && numbersOf(version.substr(kind.size())) > numbersOf(newest.substr(kind.size()))) {
            return std::string(newest);
        }
    }
    return std::nullopt;
}

bool isServerFolder(std::string_view folder)
{
    constexpr std::array<std::string_view, 3> folders{"/opt/FileMaker", "/usr/lib", "/lib"};
    return std::any_of(folders.begin(), folders.end(), [folder](std::string_view known) {
        return folder == known || folder.starts_with(std::string(known) + "/");
    });
}

} // namespace fmxhost::check
