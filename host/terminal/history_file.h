// Where the prompt's history is kept.
#pragma once

#include <filesystem>

namespace fmxhost {

// $XDG_STATE_HOME/fmxhost/history, else ~/.local/state/fmxhost/history (XDG Base Directory); empty when neither
// variable names an absolute path.
std::filesystem::path historyFile();

// Makes the file's folder, for its owner alone. Answers whether it is there.
bool makeHistoryFolder(const std::filesystem::path& file);

} // namespace fmxhost
