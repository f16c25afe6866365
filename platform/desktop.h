// The user's desktop: choosing a file or folder, opening a file with its application, an alert.
//
// Without a display, or where the desktop's services don't answer, every call fails within 5 seconds and leaves
// nothing running. Thread rule: the calling thread waits for the user; on macOS the panel runs on the main thread,
// which waits on the caller's behalf.
#pragma once

#include "platform/path_text.h"

#include <string>
#include <string_view>

namespace platform {

enum class ChooserKind { file, folder };

struct Choice {
    enum class Answer { chosen, cancelled, failed };
    Answer answer = Answer::failed;
    std::string path; // POSIX path of the chosen item, UTF-8; empty unless chosen
};

// Shows the system's open panel for one file or one folder and waits for the user, as long as that takes.
// `prompt`: the confirm button's label.
Choice chooseItem(ChooserKind kind, std::string_view prompt);

// Hands a file or folder to the application that the user has for it; false when there is none or no display.
bool openWithDefaultApplication(PathView path);

// Shows a plain alert without waiting for an answer; false when it can't be shown. Texts: UTF-8.
bool showAlert(std::string_view header, std::string_view message);

} // namespace platform
