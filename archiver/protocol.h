// What ZipFuncs.sh hands over, in one argument: "verb|source folder|destination folder|source name|destination name",
// and behind that, for all but zip and unzip, "|password".
#pragma once

#include <string>
#include <string_view>

namespace archiver {

enum class Verb { zip, zipEncrypt, unzip, unzipDecrypt, encrypt, decrypt };

// Texts are bytes as they arrived.
struct Job {
    Verb verb = Verb::zip;
    std::string sourceFolder;      // absolute, ends in "/"
    std::string destinationFolder; // the same; of an expansion it may not exist yet
    std::string sourceName;        // a name: not empty, no "/", neither "." nor ".."
    std::string destinationName;   // the same; of an expansion "expand"
    std::string password;          // empty for zip and unzip, and only there
};

// Failures: usage for a line of another form; unusableSource, unusableDestination for a folder that isn't absolute and
// a name that is none.
Job parseJob(std::string_view line);

// How many bytes of the line come before its password; all of them where it has none.
std::size_t lengthWithoutPassword(std::string_view line);

} // namespace archiver
