#include "frame/error_model.h"

#include <algorithm>
#include <array>
#include <utility>

namespace frame {

namespace {

struct Message {
    ErrorCode code;
    std::string_view text;
};

// Capitals, the trailing blank of -8014 and the full stops of the last two are what solutions compare with.
constexpr std::array messages{
    Message{ErrorCode::success, "SUCCESS"},
    Message{ErrorCode::parameterCount, "Invalid Number of Parameters"},
    Message{ErrorCode::parameterValue, "Invalid Parameter value(s)"},
    Message{ErrorCode::libraryFailedToLoad, "Library failed to load"},
    Message{ErrorCode::fileCannotBeFound, "The specified file cannot be found"},
    Message{ErrorCode::fileCannotBeFoundEither, "The specified file cannot be found"},
    Message{ErrorCode::folderCannotBeAccessed, "The specified folder cannot be accessed"},
    Message{ErrorCode::systemError, "System Error"},
    Message{ErrorCode::unknownException, "Unknown Exception"},
    Message{ErrorCode::comException, "COM Exception"},
    Message{ErrorCode::missingSource, "Missing source parameter"},
    Message{ErrorCode::missingDestination, "Missing destination parameter"},
    Message{ErrorCode::sourceNotFound, "Source path not found"},
    Message{ErrorCode::destinationNotFound, "Destination path not found"},
    Message{ErrorCode::sourceNotAFile, "Source path is not a file"},
    Message{ErrorCode::sourceNotAFolder, "Source path is not a folder"},
    Message{ErrorCode::destinationNotAFile, "Destination path is not a file"},
    Message{ErrorCode::destinationNotAFolder, "Destination path is not a folder"},
    Message{ErrorCode::fileExists, "File already exists"},
    Message{ErrorCode::folderExists, "Folder already exists"},
    Message{ErrorCode::unableToCopy, "Unable to copy"},
    Message{ErrorCode::unableToMove, "Unable to move"},
    Message{ErrorCode::unableToRename, "Unable to rename"},
    Message{ErrorCode::unableToDelete, "Unable to delete"},
    Message{ErrorCode::unableToComplete, "Unable to complete operation - "},
    Message{ErrorCode::notADrive, "Drive name is not a drive"},
    Message{ErrorCode::driveNotFound, "Drive does not exist"},
    Message{ErrorCode::missingDriveName, "Missing Drive Name parameter"},
    Message{ErrorCode::missingPassword, "Password parameter not found"},
    Message{ErrorCode::noFileMakerPath, "Unable to get FileMaker path"},
    Message{ErrorCode::decryptionFailed, "Decryption failed"},
    Message{ErrorCode::encryptionFailed, "Encryption failed"},
    Message{ErrorCode::compressionFailed, "Compression failed"},
    Message{ErrorCode::expansionFailed, "Expansion failed"},
    Message{ErrorCode::compressionAndEncryptionFailed, "Compression and Encryption failed"},
    Message{ErrorCode::expansionAndDecryptionFailed, "Expansion and Decryption failed"},
    Message{ErrorCode::sourceIsDestination, "Source Path is the same as the Destination Path."},
    Message{ErrorCode::missingDestinationName, "Missing destination name parameter."},
};

} // namespace

std::string_view messageOf(std::int32_t code)
{
    const auto* found = std::find_if(messages.begin(), messages.end(), [code](const Message& message) {
        return static_cast<std::int32_t>(message.code) == code;
    });
    return found == messages.end() ? "Undefined Error." : found->text;
}

void korb_Errors::setError(std::int32_t code, std::int32_t systemCode, std::optional<std::string> extended)
{
    fields_.store(std::make_shared<const Fields>(Fields{code, systemCode, messageOf(code), std::move(extended)}));
}

std::string korb_Errors::getError() const
{
    const Fields record = fields();
    if (!record.strError) {
        return std::string(record.errorID == 0 ? "Success" : errorResultText);
    }
    std::string text(*record.strError);
    if (record.extendedError) {
        text.append(" ").append(*record.extendedError);
    }
    return text;
}

std::string korb_Errors::getErrorNumber() const
{
    return std::to_string(fields().errorID);
}

void korb_Errors::clearError()
{
    fields_.store(nullptr);
}

korb_Errors::Fields korb_Errors::fields() const
{
    const auto record = fields_.load();
    return record ? *record : Fields{};
}

korb_Errors& lastErrors()
{
    static korb_Errors record;
    return record;
}

void clearLastError()
{
    lastErrors().clearError();
}

fmx::errcode setErrorResult(ErrorCode code, fmx::Data& result, std::optional<std::string> extended)
{
    lastErrors().setError(static_cast<std::int32_t>(code), 0, std::move(extended));

    const fmx::TextUniquePtr text;
    text->Assign(errorResultText.data(), fmx::Text::kEncoding_UTF8);
    const fmx::LocaleUniquePtr locale(fmx::Locale::kType_System);
    result.SetAsText(*text, *locale);
    return 0;
}

} // namespace frame
