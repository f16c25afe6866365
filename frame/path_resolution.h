// From a path as typed to the path that is used: a path that doesn't exist as typed is tried again under "/Volumes/",
// so that a path may begin with a volume's name.
#pragma once

#include "frame/error_model.h"
#include "platform/path_text.h"

#include <string_view>

namespace frame {

inline constexpr std::u16string_view volumePrefix = u"/Volumes/";

enum class ItemKind { file, folder };

// What is reported when nothing is there, and when the other kind of item is.
struct ResolutionCodes {
    ErrorCode notFound;
    ErrorCode wrongKind;
};

inline constexpr ResolutionCodes fileCodes{ErrorCode::sourceNotFound, ErrorCode::sourceNotAFile};
inline constexpr ResolutionCodes folderCodes{ErrorCode::sourceNotFound, ErrorCode::sourceNotAFolder};
inline constexpr ResolutionCodes destinationFolderCodes{ErrorCode::destinationNotFound,
                                                        ErrorCode::destinationNotAFolder};

// The path as typed where it exists, else the form under "/Volumes/". An item of the wrong kind fails, in either form
// when the path exists as typed; a path that is reached through "/Volumes/" alone isn't asked for its kind.
platform::PathText resolvePath(platform::PathView typed, ItemKind kind, ResolutionCodes codes);

// The same for an item that is to be deleted, which is asked for its kind in every case.
platform::PathText resolveForDeletion(platform::PathView typed, ItemKind kind, ResolutionCodes codes);

// The same for an item of any kind.
platform::PathText resolveAny(platform::PathView typed, ErrorCode notFound);

} // namespace frame
