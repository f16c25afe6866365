// The six functions that compress, expand, encrypt and decrypt. Which of them check existence, refuse a destination
// that is there or take an empty one, and which code an unknown failure gets, differs from one to the next: solutions
// depend on each as it is.

#include "archive/routines.h"
#include "frame/call_record.h"
#include "frame/external_call.h"
#include "frame/functions.h"
#include "log/current_logger.h"
#include "platform/file_manager.h"
#include "platform/resources.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

namespace {

using archive::PathText;
using archive::PathView;
using archive::Status;
using frame::ErrorCode;
using frame::ExternalCall;
using frame::externalFunction;
using frame::fail;
using logging::writeLine;
using namespace archive::routines;

// The extended text of what fails before the script is asked: there, but empty.
const std::string noDetails;

// What the script's status means. Of a status the low 16 bits count.
struct Outcomes {
    ErrorCode refused; // a path failed its check, or the password is wrong
    std::string_view badPathText;
    ErrorCode failed; // anything else
    std::string_view failedText;
    int wrongPasswordExit = 0; // the script's exit status for it; 0: there is no password to be wrong
};

constexpr std::string_view wrongPasswordText = " - Invalid password provided";
constexpr std::string_view unableToExpand = " - Unable to expand file.\nAn unknown error occurred.";

constexpr Outcomes ofCompressing{
    ErrorCode::compressionFailed, " - Failed to compress file.\nSource path must be a valid file.",
    ErrorCode::compressionFailed, " - Unable to compress file.\nAn unknown error occurred."};
constexpr Outcomes ofExpanding{ErrorCode::expansionFailed,
                               " - Failed to expand file.\nSource path must be a valid file.",
                               ErrorCode::expansionFailed, unableToExpand};
constexpr Outcomes ofEncrypting{ErrorCode::encryptionFailed,
                                " - Failed to encrypt file.\nSource path must be a valid file.",
                                ErrorCode::expansionFailed, unableToExpand};
constexpr Outcomes ofDecrypting{ErrorCode::decryptionFailed,
                                " - Failed to decrypt file.\nSource path must be a valid file.",
                                ErrorCode::expansionFailed, unableToExpand, 1};
constexpr Outcomes ofCompressingAndEncrypting{ErrorCode::compressionAndEncryptionFailed,
                                              "Failed to compress and encrypt file.\nSource path must be a valid file.",
                                              ErrorCode::expansionFailed,
                                              "Unable to expand file.\nAn unknown error occurred."};
constexpr Outcomes ofDecryptingAndExpanding{ErrorCode::expansionAndDecryptionFailed,
                                            " - Failed to decrypt and expand file.\nSource path must be a valid file.",
                                            ErrorCode::expansionFailed, unableToExpand, 82};

std::uint16_t low16(Status status)
{
    return static_cast<std::uint16_t>(status);
}

void finish(ExternalCall& call, const Outcomes& outcomes, Status status)
{
    constexpr int exitStatusUnit = 256; // of a wait status
    const std::uint16_t code = low16(status);
    if (code == archive::status::success) {
        call.returnNumber(static_cast<std::int16_t>(status));
    } else if (code == outcomes.wrongPasswordExit * exitStatusUnit) {
        fail(outcomes.refused, std::string(wrongPasswordText));
    } else if (code == archive::status::badPath) {
        fail(outcomes.refused, std::string(outcomes.badPathText));
    } else {
        fail(outcomes.failed, std::string(outcomes.failedText));
    }
}

// Paths and passwords end up on one command line, of which a system takes a limited length.
bool anyTooLong(std::initializer_list<PathView> texts)
{
    constexpr std::size_t longest = 4096; // UTF-16 units
    return std::any_of(texts.begin(), texts.end(), [](PathView text) { return text.size() > longest; });
}

void refuseTooLong(std::initializer_list<PathView> texts)
{
    if (anyTooLong(texts)) {
        fail(ErrorCode::parameterValue, noDetails);
    }
}

// A folder's path ends where its name ends; the root's is its slash.
PathView withoutTrailingSlashes(PathView path)
{
    const std::size_t last = path.find_last_not_of(u'/');
    return path.substr(0, last == PathView::npos ? 1 : last + 1);
}

struct Texts {
    PathText source;
    PathText destination;
    PathText password;
};

Texts requiredTexts(const ExternalCall& call)
{
    call.requireCount(3);
    Texts texts{call.requiredText(0, ErrorCode::missingSource, noDetails),
                call.requiredText(1, ErrorCode::missingDestination, noDetails),
                call.requiredText(2, ErrorCode::missingPassword, noDetails)};
    refuseTooLong({texts.source, texts.destination, texts.password});
    return texts;
}

// An archive without a destination is expanded into its own folder.
PathText destinationOr(const ExternalCall& call, const PathText& archive)
{
    PathText destination = call.text(1);
    return destination.empty() ? archive : destination;
}

Status run(const archive::Routine& routine, const archive::Job& job)
{
    const auto script = [] { return platform::resourceFile(frame::pluginBundle(), "ZipFuncs", "sh"); };
    return archive::runRoutine(routine, job, {script, std::chrono::seconds(1)});
}

[[noreturn]] void failTraced(std::string_view outcome, ErrorCode code, std::optional<std::string> extended)
{
    writeLine(std::string("Returning ").append(outcome));
    fail(code, std::move(extended));
}

void traceCompression(Status status)
{
    if (low16(status) == archive::status::success) {
        writeLine("Zip successful!");
        writeLine("Returning Done with KORB_CompressFile");
    } else if (low16(status) == archive::status::badPath) {
        writeLine("Returning Error: Failed to compress file, source not found");
    } else {
        writeLine("Returning Error: Failed to compress file, unknown error");
    }
}

} // namespace

fmx::errcode KORB_CompressFile(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        const logging::FunctionTrace trace("KORB_CompressFile");
        if (call.count() != 2) {
            failTraced("Error: Invalid number of parameters", ErrorCode::parameterCount, std::nullopt);
        }
        writeLine("Checking source path");
        const PathText source = call.text(0);
        if (source.empty()) {
            failTraced("Error: No source path defined.", ErrorCode::missingSource, noDetails);
        }
        writeLine("Checking destination path");
        const PathText destination = call.text(1);
        if (destination.empty()) {
            failTraced("Error: No destination path defined.", ErrorCode::missingDestination, noDetails);
        }
        if (anyTooLong({source, destination})) {
            failTraced("Error: Parameter too long.", ErrorCode::parameterValue, noDetails);
        }
        writeLine("Determining if Source Path is a file or folder");
        const platform::Existence found = platform::existence(source);
        if (!found.exists) {
            failTraced("Error: Souce path does not exist.", ErrorCode::sourceNotFound, noDetails);
        }
        writeLine(found.isFolder ? "Source is a folder. Calling ZipAFolder..."
                                 : "Source is a file. Calling ZipAFile...");
        const Status status = found.isFolder ? run(zipAFolder, {withoutTrailingSlashes(source), destination})
                                             : run(zipAFile, {source, destination});
        writeLine("Done calling zip function!");
        traceCompression(status);
        finish(call, ofCompressing, status);
    });
}

fmx::errcode KORB_ExpandFile(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(2);
        const PathText source = call.requiredText(0, ErrorCode::missingSource, noDetails);
        const PathText destination = destinationOr(call, source);
        refuseTooLong({source, destination});
        if (!platform::existence(source).exists) {
            fail(ErrorCode::sourceNotFound, noDetails);
        }
        finish(call, ofExpanding, run(unzipAFile, {source, destination}));
    });
}

fmx::errcode KORB_EncryptFile(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        const auto [source, destination, password] = requiredTexts(call);
        finish(call, ofEncrypting, run(encryptTheFile, {source, destination, password}));
    });
}

fmx::errcode KORB_DecryptFile(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        const auto [source, destination, password] = requiredTexts(call);
        finish(call, ofDecrypting, run(decryptTheFile, {source, destination, password}));
    });
}

fmx::errcode KORB_CompressAndEncrypt(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        const auto [source, destination, password] = requiredTexts(call);
        const platform::Existence found = platform::existence(source);
        if (!found.exists) {
            fail(ErrorCode::sourceNotFound, noDetails);
        }
        if (platform::existence(destination).exists) {
            fail(ErrorCode::fileExists, noDetails);
        }
        const Status status = found.isFolder
                                  ? run(zipAndEncryptFolder, {withoutTrailingSlashes(source), destination, password})
                                  : run(zipAndEncrypt, {source, destination, password});
        finish(call, ofCompressingAndEncrypting, status);
    });
}

fmx::errcode KORB_DecryptAndExpand(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(3);
        const PathText source = call.requiredText(0, ErrorCode::missingSource, noDetails);
        const PathText destination = destinationOr(call, source);
        const PathText password = call.requiredText(2, ErrorCode::missingPassword, noDetails);
        refuseTooLong({source, destination, password});
        finish(call, ofDecryptingAndExpanding, run(unzipAndDecrypt, {source, destination, password}));
    });
}
