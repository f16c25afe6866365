// Lines come from libedit by its readline interface, in the form with callbacks: it hands over a line when one is
// complete, and the loop that waits for keys is here, so that Ctrl-C is noticed between two of them and nothing has to
// be jumped out of. While a line is edited libedit has the terminal and its own signal handlers, which put the terminal
// right and then send the signal once more, to the handler of this file; between lines the terminal is as it was.
#include "host/session.h"

#include "host/base/unicode.h"

// libedit's header needs this one before it.
#include <cstdio>
#include <editline/readline.h>

#include <csignal>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace fmxhost {
namespace fs = std::filesystem;
namespace {

// What C callbacks need: there is one prompt in a process.
volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t evaluating = 0;
std::optional<std::string> entered; // a whole line
bool ended = false;                 // Ctrl-D
Session* served = nullptr;
Lines* lines = nullptr;

// Ctrl-C. A handler rather than SIG_IGN, which a program that the plug-in starts would inherit. System calls of the
// plug-in are restarted; pselect() never is.
void handleInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {
        interrupted = 1;
        constexpr std::string_view wayOut = "\nA function can't be broken off; Ctrl-\\ ends fmxhost.\n";
        if (evaluating != 0 && ::write(STDERR_FILENO, wayOut.data(), wayOut.size()) < 0) {
            return; // the terminal is gone
        }
    };
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

// Waits for a key. False when there won't be one, or after Ctrl-C.
bool waitForKey()
{
    sigset_t interrupt;
    sigset_t before;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, &before); // so that none is missed before the wait
    int ready = -1;
    while (interrupted == 0 && ready < 0) {
        fd_set input;
        FD_ZERO(&input);
        FD_SET(STDIN_FILENO, &input);
        ready = pselect(STDIN_FILENO + 1, &input, nullptr, nullptr, nullptr, &before);
        if (ready < 0 && errno != EINTR) {
            break;
        }
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    int available = 0;
    return ready > 0 && interrupted == 0 && ioctl(STDIN_FILENO, FIONREAD, &available) == 0 && available > 0;
}

// One line; nothing after Ctrl-C, of which `interrupted` tells, and at the end.
std::optional<std::string> readLine(const std::string& prompt)
{
    interrupted = 0;
    entered.reset();
    rl_callback_handler_install(prompt.c_str(), [](char* line) {
        if (line == nullptr) {
            ended = true;
            return;
        }
        entered = line;
        std::free(line); // NOLINT(cppcoreguidelines-no-malloc): libedit's
        rl_callback_handler_remove();
    });
    while (!entered && !ended && waitForKey()) {
        rl_callback_read_char();
    }
    if (!entered) {
        rl_callback_handler_remove();
    }
    ended = ended && interrupted == 0; // Ctrl-C in a search looks like both
    return std::exchange(entered, std::nullopt);
}

// Where the word at the cursor begins: in a text at its quotation mark, so that a path may have blanks. Releases of
// libedit differ in whether they go by the answer or by the variable.
char* wordBreaks()
{
    static std::string ofNames = " \t\n\"\\'`@<>=;|&{}()[]+-*/≠≤≥¶,^";
    static std::string ofTexts = "\"";
    const std::string before = lines->begun() + (lines->begun().empty() ? "" : "\n") +
                               std::string(rl_line_buffer, static_cast<std::size_t>(rl_point));
    std::string& breaks = openAtEnd(toUtf16(before)) == Open::text ? ofTexts : ofNames;
    rl_basic_word_break_characters = breaks.c_str();
    return breaks.data();
}

// Of variables and functions. A single function gets its parenthesis.
std::vector<std::string> namesWithPrefix(const std::string& word)
{
    std::vector<std::string> names;
    const std::u16string prefix = foldCase(toUtf16(word));
    for (const auto& [name, value] : served->variables()) {
        if (!prefix.empty() && name.starts_with(prefix)) {
            names.push_back(toUtf8(name));
        }
    }
    const bool isHelp = foldCase(toUtf16(std::string_view(rl_line_buffer).substr(0, 5))) == u"help ";
    bool takesArguments = false;
    for (const Function& function : served->functions().all()) {
        if (foldCase(function.name).starts_with(prefix)) {
            names.push_back(toUtf8(function.name));
            takesArguments = function.maximumArguments != 0;
        }
    }
    rl_completion_append_character = names.size() == 1 && takesArguments && !isHelp ? '(' : 0;
    return names;
}

// A path in a text, a name elsewhere.
char** complete(const char* word, int, int)
{
    static std::vector<std::string> candidates;
    static std::size_t next = 0;
    rl_attempted_completion_over = 1;
    rl_completion_append_character = 0;
    if (*wordBreaks() == '"') {
        char** paths = rl_completion_matches(word, filename_completion_function);
        std::error_code error;
        rl_completion_append_character = paths != nullptr && fs::is_directory(paths[0], error) ? '/' : 0;
        return paths;
    }
    candidates = namesWithPrefix(word);
    return rl_completion_matches(word, [](const char*, int state) {
        next = state == 0 ? 0 : next;
        return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr; // for libedit to free
    });
}

// In $XDG_STATE_HOME, else in ~/.local/state (XDG Base Directory); not at all when neither variable names an absolute
// path. For its owner alone: calculations may hold passwords.
fs::path historyFile()
{
    for (const auto& [variable, below] : {std::pair{"XDG_STATE_HOME", ""}, std::pair{"HOME", ".local/state"}}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value == '/') {
            return fs::path(value) / below / "fmxhost/history";
        }
    }
    return {};
}

// False when it can't be saved.
bool addToHistory(const fs::path& file, const std::string& line)
{
    static std::string last;
    if (line.empty() || line == std::exchange(last, line)) {
        return true;
    }
    add_history(line.c_str());
    std::error_code error;
    if (!file.empty() && fs::create_directories(file.parent_path(), error)) {
        fs::permissions(file.parent_path(), fs::perms::owner_all, error);
    }
    return file.empty() || write_history(file.c_str()) == 0;
}

// Ctrl-D that was typed while something was evaluated reaches the line editor as a zero (Linux, n_tty).
int endOfFile(int, int)
{
    rl_done = rl_end == 0 ? 1 : 0;
    return 0;
}

void setUpEditing()
{
    rl_readline_name = "fmxhost"; // in editrc(5)
    rl_initialize();
    rl_completion_word_break_hook = wordBreaks;
    rl_attempted_completion_function = complete;
    rl_add_defun("typed-ahead-end", endOfFile, '\0');
    using_history();
    stifle_history(1000); // lines
}

} // namespace

ExitStatus runPrompt(Session& session)
{
    const std::string name = toUtf8(session.plugin().string(PluginString::name));
    print((name.empty() ? session.plugin().file().filename().string() : name) + ", " +
          std::to_string(session.plugin().functions().size()) + " functions. help explains, Ctrl-D ends.\n");
    flush();
    Lines typed(session, "", true);
    served = &session;
    lines = &typed;
    setUpEditing();
    const fs::path history = historyFile();
    if (!history.empty()) {
        read_history(history.c_str());
    }
    handleInterrupts();
    bool warned = false;
    bool secret = false;
    while (!typed.hasQuit()) {
        const bool goesOn = !typed.begun().empty();
        std::optional<std::string> line = readLine(goesOn ? "     ... " : "fmxhost> ");
        if (!line) {
            print("\n");
            flush();
            typed.giveUp();
            if (interrupted == 0) { // Ctrl-D, or the terminal is gone
                break;
            }
            continue;
        }
        secret = goesOn ? secret : line->starts_with(' '); // what begins with a blank isn't kept
        if (!secret && !addToHistory(history, *line) && !std::exchange(warned, true)) {
            reportError("The history can't be saved in " + history.string());
        }
        evaluating = 1;
        typed.take(std::move(*line));
        evaluating = 0;
    }
    return ExitStatus::success;
}

} // namespace fmxhost
