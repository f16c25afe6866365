#include "host/terminal/line_editor.h"

#include "host/terminal/history_file.h"
#include "host/unicode.h"

#include <csignal>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace fmxhost {
namespace {

constexpr int historySize = 1000;
constexpr char controlD = '\x04';

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t resized = 0;

// Catches Ctrl-C and changes of the window's size while it lives. System calls are not restarted: the read must see
// them.
class SignalScope {
public:
    SignalScope()
    {
        interrupted = 0;
        install(
            SIGINT, [](int) { interrupted = 1; }, &interruptBefore_);
        install(
            SIGWINCH, [](int) { resized = 1; }, &resizeBefore_);
    }
    ~SignalScope()
    {
        sigaction(SIGINT, &interruptBefore_, nullptr);
        sigaction(SIGWINCH, &resizeBefore_, nullptr);
    }
    SignalScope(const SignalScope&) = delete;
    SignalScope& operator=(const SignalScope&) = delete;

private:
    static void install(int signal, void (*handler)(int), struct sigaction* before)
    {
        struct sigaction action = {};
        action.sa_handler = handler;
        sigaction(signal, &action, before);
    }

    struct sigaction interruptBefore_ = {};
    struct sigaction resizeBefore_ = {};
};

bool isWordCharacter(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    return value >= 0x80 || std::isalnum(value) != 0 || byte == '_' || byte == '.' || byte == '$';
}

// What all candidates begin with, whatever their letter case, in the spelling of the first one.
std::string commonPrefix(const std::vector<std::string>& candidates)
{
    std::u16string prefix = toUtf16(candidates.front());
    for (const std::string& candidate : candidates) {
        while (!foldCase(toUtf16(candidate)).starts_with(foldCase(prefix))) {
            prefix.pop_back();
        }
    }
    return toUtf8(prefix);
}

} // namespace

LineEditor::LineEditor(std::string prompt, std::filesystem::path historyFile, Completer completer)
    : prompt_(std::move(prompt)), historyFile_(std::move(historyFile)), completer_(std::move(completer)),
      editor_(el_init("fmxhost", stdin, stdout, stderr), &el_end), history_(history_init(), &history_end)
{
    if (!editor_ || !history_) {
        throw std::bad_alloc();
    }
    EditLine* editor = editor_.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_PROMPT_ESC, &LineEditor::promptOf, '\1');
    // The wide form: in older libraries the narrow one takes a function for the first byte of each character.
    el_wset(editor, EL_GETCFN, &LineEditor::readCharacter);
    el_set(editor, EL_HIST, history, history_.get());
    // The wide form: the narrow one never frees the texts' copies.
    el_wset(editor, EL_ADDFN, L"complete-name", L"Complete a name", &LineEditor::complete);
    el_set(editor, EL_BIND, "^I", "complete-name", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_source(editor, nullptr); // the user's own bindings: editrc(5)

    HistEvent event;
    history(history_.get(), &event, H_SETSIZE, historySize);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    if (!historyFile_.empty()) {
        history(history_.get(), &event, H_LOAD, historyFile_.c_str());
    }
}

LineEditor::~LineEditor() = default;

LineEditor& LineEditor::of(EditLine* editor)
{
    LineEditor* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *self;
}

char* LineEditor::promptOf(EditLine* editor)
{
    return of(editor).prompt_.data();
}

// Instead of libedit's own: that one takes every signal for the end.
int LineEditor::readCharacter(EditLine* editor, wchar_t* character)
{
    std::mbstate_t state = {};
    for (;;) {
        if (interrupted != 0) {
            return -1;
        }
        if (std::exchange(resized, 0) != 0) {
            el_resize(editor);
        }
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count == 0) {
            return 0;
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        // A Ctrl-D typed while something was evaluated: the terminal keeps it as a zero (Linux, n_tty).
        if (byte == '\0') {
            byte = controlD;
        }
        const std::size_t used = std::mbrtowc(character, &byte, 1, &state);
        if (used == 1) {
            return 1;
        }
        if (used == static_cast<std::size_t>(-1)) {
            state = {};
        } // what isn't UTF-8 is left out
    }
}

LineEditor::Outcome LineEditor::read(std::string& line)
{
    const SignalScope signals;
    int count = 0;
    const char* text = el_gets(editor_.get(), &count);
    if (interrupted != 0) {
        std::fputs("\n", stdout);
        std::fflush(stdout);
        return Outcome::interrupted;
    }
    if (text == nullptr || count <= 0) {
        return Outcome::end;
    }
    line = text;
    while (line.ends_with('\n') || line.ends_with('\r')) {
        line.pop_back();
    }
    return Outcome::line;
}

bool LineEditor::remember(const std::string& line)
{
    if (line.empty() || line.front() == ' ') {
        return true;
    }
    HistEvent event;
    history(history_.get(), &event, H_ENTER, line.c_str());
    if (historyFile_.empty()) {
        return true;
    }
    return makeHistoryFolder(historyFile_) && history(history_.get(), &event, H_SAVE, historyFile_.c_str()) != -1;
}

unsigned char LineEditor::complete(EditLine* editor, int)
{
    return of(editor).completeWord();
}

unsigned char LineEditor::completeWord()
{
    const LineInfo* info = el_line(editor_.get());
    const std::string_view before(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
    std::size_t start = before.size();
    while (start > 0 && isWordCharacter(before[start - 1])) {
        --start;
    }
    const std::string word(before.substr(start));
    const Completion completion = completer_(before.substr(0, start), word);
    if (completion.candidates.empty()) {
        return CC_REFRESH_BEEP;
    }

    std::string replacement = commonPrefix(completion.candidates);
    if (completion.candidates.size() == 1) {
        replacement += completion.ending(replacement);
    } else if (toUtf16(replacement).size() <= toUtf16(word).size()) {
        showCandidates(completion.candidates);
        return CC_REDISPLAY;
    }
    el_deletestr(editor_.get(), static_cast<int>(std::mbstowcs(nullptr, word.c_str(), 0)));
    return el_insertstr(editor_.get(), replacement.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

void LineEditor::showCandidates(const std::vector<std::string>& candidates)
{
    std::size_t width = 0;
    for (const std::string& candidate : candidates) {
        width = std::max(width, displayWidth(toUtf16(candidate)) + 2);
    }
    constexpr std::size_t lineWidth = 80;
    const std::size_t columns = std::max<std::size_t>(1, lineWidth / width);
    std::string text = "\n";
    for (std::size_t index = 0; index < candidates.size(); ++index) {
        const bool last = index % columns == columns - 1 || index + 1 == candidates.size();
        text += candidates[index];
        text.append(last ? 0 : width - displayWidth(toUtf16(candidates[index])), ' ').append(last ? "\n" : "");
    }
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

} // namespace fmxhost
