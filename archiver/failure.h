// How a part of the program gives up: by an exception that main() turns into an exit status and a line for the log.
#pragma once

#include <string>
#include <utility>

namespace archiver {

// The exit statuses, sysexits(3) where one fits; 128 and a signal's number after a signal.
enum class Exit : int {
    done = 0,
    wrongPassword = 1, // of an encrypted file
    usage = 64,
    damaged = 65,             // the source isn't what it should be, or is hostile
    unusableSource = 66,      // missing, unreadable, of the wrong kind, or changed meanwhile
    unsupported = 69,         // a method that this build doesn't know
    internal = 70,            // no memory, or a fault of the program
    unusableDestination = 73, // missing, not writable, or something is in the way
    notWritten = 74,          // full disk, quota, file size limit, failed disk
    passwordNeeded = 77,      // the archive is encrypted, and no password was given
    wrongZipPassword = 82,    // of an archive
};

// Never leaves the program.
class Failure {
public:
    // `cause`: UTF-8, one line for the log, without the item's path where that is the source or destination itself.
    Failure(Exit exit, std::string cause) : exit_(exit), cause_(std::move(cause)) {}

    Exit exit() const { return exit_; }
    const std::string& cause() const { return cause_; }

private:
    Exit exit_;
    std::string cause_;
};

[[noreturn]] inline void fail(Exit exit, std::string cause)
{
    throw Failure(exit, std::move(cause));
}

// The failure of a system call that writes: notWritten for what a full or failed disk, a quota or a limit says
// (ENOSPC, EDQUOT, EFBIG, EIO, EROFS), else unusableDestination. `error`: an errno value.
[[noreturn]] void failWriting(const std::string& what, int error);

} // namespace archiver
