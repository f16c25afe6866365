// How every function reports failure: the text "!!ERROR!!" as its result, and the details in one process-wide record
// that the solution reads with KORB_GetLastError.
//
// The record isn't locked: concurrent calls overwrite each other's error, whole record by whole record, and a reader
// sees the most recent writer's.
#pragma once

#include "frame/fmx_sdk.h"
#include "frame/snapshot_cell.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace frame {

enum class ErrorCode : std::int32_t {
    success = 0,
    parameterCount = -3,
    parameterValue = -4,
    libraryFailedToLoad = -200,
    fileCannotBeFound = -300,
    fileCannotBeFoundEither = -301,
    folderCannotBeAccessed = -302,
    systemError = -400,
    unknownException = -998,
    comException = -999,
    missingSource = -8000,
    missingDestination = -8001,
    sourceNotFound = -8002,
    destinationNotFound = -8003,
    sourceNotAFile = -8004,
    sourceNotAFolder = -8005,
    destinationNotAFile = -8006,
    destinationNotAFolder = -8007,
    fileExists = -8008,
    folderExists = -8009,
    unableToCopy = -8010,
    unableToMove = -8011,
    unableToRename = -8012,
    unableToDelete = -8013,
    unableToComplete = -8014,
    notADrive = -8015,
    driveNotFound = -8016,
    missingDriveName = -8017,
    missingPassword = -8018,
    noFileMakerPath = -8019,
    decryptionFailed = -8020,
    encryptionFailed = -8021,
    compressionFailed = -8022,
    expansionFailed = -8023,
    compressionAndEncryptionFailed = -8024,
    expansionAndDecryptionFailed = -8025,
    sourceIsDestination = -8026,
    missingDestinationName = -8027,
};

// The message of a code; "Undefined Error." for a code that has none.
std::string_view messageOf(std::int32_t code);

// The result of every failed function.
inline constexpr std::string_view errorResultText = "!!ERROR!!";

// The last-error record. Texts are UTF-8.
class korb_Errors {
public:
    struct Fields {
        std::int32_t errorID = 0;                 // 0: none
        std::int32_t sysID = 0;                   // an operating system's error code; nothing sets one
        std::optional<std::string_view> strError; // the code's message; nullopt when cleared
        std::optional<std::string> extendedError; // text from the failing function
    };

    // Replaces the whole record. `extended`: nullopt, or a text that is stored even when it is empty.
    void setError(std::int32_t code, std::int32_t systemCode, std::optional<std::string> extended);

    // "Success" when cleared; else the message, followed by a blank and the extended text where there is one.
    std::string getError() const;

    // The code in decimal digits, such as "-8002".
    std::string getErrorNumber() const;

    void clearError();

    Fields fields() const;

private:
    SnapshotCell<const Fields> fields_; // null: cleared
};

// The one record. It lives as long as the plug-in is loaded. Its errorID is the last error code, too: 0 after a
// function that clears the record.
korb_Errors& lastErrors();

// What a function does first: no error, code 0.
void clearLastError();

// What a failing function does last: records code and extended text and makes the result "!!ERROR!!". Returns the 0
// that the function returns to FileMaker. Throws what the SDK's wrapper calls throw.
fmx::errcode setErrorResult(ErrorCode code, fmx::Data& result, std::optional<std::string> extended = std::nullopt);

} // namespace frame
