// exports, libraries: Mach-O files have a reader on every Mac.
#include "host/check/test.h"

namespace fmxhost::check {
namespace {

[[noreturn]] void nameTheReader(const Examination& examination, const std::string& option)
{
    const std::string library = PluginFile(examination.settings().plugin).library();
    throw Skipped("it isn't read here: dyld_info " + option + " " + library + " shows it");
}

} // namespace

void examineExports(Examination& examination)
{
    nameTheReader(examination, "-exports");
}

void examineLibraries(Examination& examination)
{
    nameTheReader(examination, "-dependents");
}

} // namespace fmxhost::check
