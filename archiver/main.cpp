// folidex-archive: what ZipFuncs.sh starts, with the verb line as its only argument. One line of standard output says
// how it ended, "status verb: cause", for whoever started it; the system log gets it too when that isn't 0.
//
//   main.cpp        the process, and how it ends
//   call            one call; protocol: the verb line
//   failure         exit statuses; interruption: signals
//   source_file     the file that is read
//   result_file     the file that is written; leftovers: what killed calls left
//   encrypted_file  encrypt, decrypt
//   packing         zip, zipencrypt, by ordered_work on all processors: workers
//   zip_writer      the records of an archive: zip_format; block_deflate, zip_crypto: its contents
//   expansion       unzip, unzipdecrypt, in a work folder; placement: whole or not at all; tree_cursor: both walk by it
//   zip_reader      the directory of an archive, checked; entry_path: its names
//   zip_content     what entries hold, decrypted and compared; decoders, deflate64: by which method

#include "archiver/call.h"
#include "archiver/failure.h"
#include "archiver/interruption.h"
#include "archiver/protocol.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>

#ifdef __APPLE__
#include <crt_externs.h>
#else
extern char** environ; // NOLINT(readability-redundant-declaration): not every C library's headers declare it
#endif

namespace archiver {

namespace {

// Nothing that the caller's process happens to be like makes a difference.
void settle()
{
    // Files that are opened must not become standard output.
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(standard, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            std::_Exit(static_cast<int>(Exit::internal));
        }
    }
    // Libraries read their options there.
    static char* nothing[] = {nullptr};
#ifdef __APPLE__
    *_NSGetEnviron() = nothing;
#else
    environ = nothing;
#endif
    // What the calls' errors say: EFBIG, EPIPE.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    noteInterruptions();
}

void report(const Ending& ending, std::string_view verb)
{
    std::string line = std::to_string(ending.status).append(" ").append(verb).append(": ").append(ending.cause);
    const auto isControl = [](char letter) { return static_cast<unsigned char>(letter) < ' ' || letter == '\x7f'; };
    std::replace_if(line.begin(), line.end(), isControl, ' ');
    if (ending.status != 0) {
        openlog("Folidex", 0, LOG_USER);
        syslog(LOG_ERR, "ZipFuncs.sh: %s", line.c_str());
    }
    line.push_back('\n');
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) {
        // Nobody listens.
    }
}

} // namespace

} // namespace archiver

int main(int count, char** arguments)
{
    using namespace archiver;
    settle();
    std::string line = count == 2 ? arguments[1] : "";
    if (count == 2) {
        // Out of the list of processes.
        std::fill(arguments[1] + lengthWithoutPassword(line), arguments[1] + line.size(), '\0');
    }
    const Ending ending = count == 2 ? perform(line) : Ending{static_cast<int>(Exit::usage), "not one argument"};
    report(ending, std::string_view(line).substr(0, line.find('|')));
    return ending.status;
}
