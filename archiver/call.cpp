#include "archiver/call.h"

#include "archiver/encrypted_file.h"
#include "archiver/expansion.h"
#include "archiver/failure.h"
#include "archiver/interruption.h"
#include "archiver/packing.h"
#include "archiver/protocol.h"

#include <exception>
#include <new>

namespace archiver {

namespace {

void perform(const Job& job)
{
    switch (job.verb) {
    case Verb::zip:
    case Verb::zipEncrypt:
        return pack(job);
    case Verb::unzip:
    case Verb::unzipDecrypt:
        return expand(job);
    case Verb::encrypt:
        return encryptFile(job);
    case Verb::decrypt:
        return decryptFile(job);
    }
}

Ending attempt(std::string_view line)
{
    constexpr int internal = static_cast<int>(Exit::internal);
    constexpr int signalled = 128;
    try {
        perform(parseJob(line));
        return {};
    } catch (const Failure& failure) {
        return {static_cast<int>(failure.exit()), failure.cause()};
    } catch (const Interrupted& interrupted) {
        return {signalled + interrupted.signal, "signal"};
    } catch (const std::bad_alloc&) {
        return {internal, "no memory"};
    } catch (const std::exception& error) {
        return {internal, error.what()};
    }
}

} // namespace

Ending perform(std::string_view line)
{
    try {
        return attempt(line);
    } catch (const std::bad_alloc&) {
        return {static_cast<int>(Exit::internal), "no memory"}; // not even for another cause
    }
}

} // namespace archiver
