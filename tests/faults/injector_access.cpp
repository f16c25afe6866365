#include "faults/injector_access.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace folidex::test {

void loadInjector(char** arguments)
{
    if (dlsym(RTLD_DEFAULT, armName) != nullptr) {
        unsetenv("LD_PRELOAD"); // not for the scripts that the plug-in runs
        return;
    }
    if (getenv("LD_PRELOAD") == nullptr) {
        setenv("LD_PRELOAD", FOLIDEX_FAULT_INJECTOR, 1);
        execv("/proc/self/exe", arguments);
    }
    throw std::runtime_error("the fault injector can't be loaded");
}

Injector::Injector()
    : arm(reinterpret_cast<ArmFaults>(dlsym(RTLD_DEFAULT, armName))),
      disarm(reinterpret_cast<DisarmFaults>(dlsym(RTLD_DEFAULT, disarmName)))
{
}

FaultPlan planFor(const PluginUnderTest& plugin)
{
    FaultPlan plan;
    struct Search {
        std::string name;
        FaultPlan& plan;
    } search{plugin.plugin().file().filename(), plan};
    dl_iterate_phdr(
        [](dl_phdr_info* library, std::size_t, void* data) {
            auto& wanted = *static_cast<Search*>(data);
            if (!std::string(library->dlpi_name).ends_with("/" + wanted.name)) {
                return 0;
            }
            for (int i = 0; i < library->dlpi_phnum; ++i) {
                const auto& header = library->dlpi_phdr[i];
                if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
                    const std::uintptr_t begin = library->dlpi_addr + header.p_vaddr;
                    wanted.plan.codeBegin = begin;
                    wanted.plan.codeEnd = begin + header.p_memsz;
                }
            }
            return 1;
        },
        &search);
    return plan;
}

} // namespace folidex::test
