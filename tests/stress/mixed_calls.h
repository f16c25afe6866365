// Calls of all functions in the mix that a busy host makes, each answer checked.
#pragma once

#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <string>
#include <vector>

namespace folidex::test {

// One caller with a folder of its own, so that what it asks for has one right answer whatever other threads do.
//
// Thread rule: an object belongs to one thread; several may share the plug-in and the scratch folder.
class MixedCalls {
public:
    MixedCalls(const PluginUnderTest& plugin, const ScratchFolder& scratch, int number);

    // Every function but the archive ones, some of them more than once; answers how many calls that took. The desktop's
    // need a process without a display: they fail at once then.
    unsigned round();

    // Compresses and encrypts, each at its second and more.
    unsigned archiveRound();

    // What was wrong, at most a few lines; empty when nothing was.
    const std::string& faults() const { return faults_; }

private:
    using Arguments = std::vector<fmxhost::Value>;

    Result call(const char* function, const Arguments& arguments = {});
    void expectText(const char* function, const Arguments& arguments, const std::string& wanted);
    void expectDate(const char* function, const Arguments& arguments);
    void expectAny(const char* function, const Arguments& arguments);
    void note(const char* function, const std::string& answer);

    void copyAndMove();
    void askForAttributes();
    void provokeErrors();
    void askForTheRest();

    const PluginUnderTest& plugin_;
    std::string folder_;
    unsigned calls_ = 0;
    std::string faults_;
};

// Descriptors that this process has open.
std::size_t openDescriptors();

// Bytes of memory that this process has resident (proc(5), statm).
std::size_t residentBytes();

// FOLIDEX_FULL in the environment: the long runs.
bool isFullRun();

// Makes the process one without a display, with its log in the scratch folder.
void prepareProcess(const ScratchFolder& scratch);

} // namespace folidex::test
