// Reads lines from a terminal with editing, history and completion (libedit).
#pragma once

#include <histedit.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost {

// What may stand for a word that was begun. All UTF-8.
struct Completion {
    std::vector<std::string> candidates;                   // whole words, in any letter case
    std::function<std::string(const std::string&)> ending; // what follows a candidate once it is the only one
};

// Thread rule: one object in the process, one thread.
class LineEditor {
public:
    // Called with the line up to the word, and the word.
    using Completer = std::function<Completion(std::string_view before, std::string_view word)>;

    enum class Outcome { line, interrupted, end };

    // `prompt` may contain escape sequences between two characters \1. History is loaded from the file and saved to it
    // after each line; an empty path keeps none.
    LineEditor(std::string prompt, std::filesystem::path historyFile, Completer completer);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // Reads one line, without its line end. Ctrl-C gives up the line: `interrupted`. Ctrl-D in an empty line and a
    // terminal that is gone: `end`. Outside this function signals do what they did.
    Outcome read(std::string& line);

    // Adds a line to the history, unless it begins with a blank. Answers false when it couldn't be saved.
    bool remember(const std::string& line);

private:
    static char* promptOf(EditLine* editor);
    static int readCharacter(EditLine* editor, wchar_t* character);
    static unsigned char complete(EditLine* editor, int key);
    static LineEditor& of(EditLine* editor);

    unsigned char completeWord();
    void showCandidates(const std::vector<std::string>& candidates);

    std::string prompt_;
    std::filesystem::path historyFile_;
    Completer completer_;
    std::unique_ptr<EditLine, decltype(&el_end)> editor_;
    std::unique_ptr<History, decltype(&history_end)> history_;
};

} // namespace fmxhost
