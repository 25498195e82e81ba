#include "shell.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <histedit.h>
#include <iostream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "common/command_line.h"
#include "completion.h"
#include "connection.h"
#include "exit_codes.h"

namespace {

constexpr int kHistoryLines = 500;
constexpr int kCompletionPatienceMs = 1000;

volatile std::sig_atomic_t g_interrupted = 0;

/** SIGINT abandons the command that runs; it is let through only while its answer is waited for. */
class InterruptGuard {
public:
    InterruptGuard()
    {
        struct sigaction action {};
        action.sa_handler = [](int) { g_interrupted = 1; };
        (void)sigaction(SIGINT, &action, &actionBefore_);
        sigset_t interrupt;
        (void)sigemptyset(&interrupt);
        (void)sigaddset(&interrupt, SIGINT);
        (void)sigprocmask(SIG_BLOCK, &interrupt, &maskBefore_);
        g_interrupted = 0;
    }
    ~InterruptGuard()
    {
        (void)sigprocmask(SIG_SETMASK, &maskBefore_, nullptr);
        (void)sigaction(SIGINT, &actionBefore_, nullptr);
    }
    InterruptGuard(const InterruptGuard &) = delete;
    InterruptGuard &operator=(const InterruptGuard &) = delete;

private:
    struct sigaction actionBefore_ {};
    sigset_t maskBefore_{};
};

std::string Title(const Process &process)
{
    return process.name + " (" + std::to_string(process.id) + ")";
}

int Tell(int exitCode, const std::string &message)
{
    (void)std::fflush(stdout);
    (void)std::fprintf(stderr, "nordiag: %s\n", message.c_str());
    return exitCode;
}

int TellRefusal(const Process &process, const std::string &group, const Answer &answer)
{
    switch (answer.refusal) {
    case nordiag::Refusal::NO_SUCH_GROUP:
        return Tell(EXIT_CODE_NO_GROUP,
                    Title(process) + " has no command group " + group + "; help lists those it has");
    case nordiag::Refusal::NO_HELP:
        return Tell(EXIT_CODE_NO_GROUP, "the command group " + group + " has no help");
    case nordiag::Refusal::NOT_PERMITTED:
        return Tell(EXIT_CODE_NO_ANSWER, Title(process) + " refuses: " + answer.problem + "; become " + process.user);
    default:
        return Tell(EXIT_CODE_NO_ANSWER, Title(process) + " refuses: " + answer.problem);
    }
}

int Report(const Process &process, const std::string &group, const Answer &answer)
{
    switch (answer.outcome) {
    case Answer::Outcome::DONE:
        return answer.result == 0
                   ? EXIT_CODE_OK
                   : Tell(EXIT_CODE_COMMAND_FAILED, "the command returned " + std::to_string(answer.result));
    case Answer::Outcome::REFUSED:
        return TellRefusal(process, group, answer);
    case Answer::Outcome::DESERTED:
        return Tell(EXIT_CODE_NO_ANSWER, Title(process) + " has ended; 'nordiag list' shows who is there");
    case Answer::Outcome::SILENT:
        return Tell(EXIT_CODE_NO_ANSWER, Title(process) + " does not answer; it may be stopped, or hang");
    case Answer::Outcome::ABANDONED:
        return Tell(EXIT_CODE_ABANDONED, "abandoned; the command runs on in " + Title(process) + " until it ends");
    case Answer::Outcome::STRANGER:
    case Answer::Outcome::FAILED:
        break;
    }
    return Tell(EXIT_CODE_NO_ANSWER, Title(process) + ": " + answer.problem);
}

/** While a line is edited: nobody can abandon this, so it has to be quick. */
std::vector<std::string> WordsForCompletion(const Process &process, nordiag::FrameType type,
                                            const std::vector<std::string> &words)
{
    return Ask(process.peer, {type, words, false, kCompletionPatienceMs, nullptr}).words;
}

int ListGroups(const Process &process)
{
    const Answer answer = Ask(process.peer, {nordiag::FrameType::GROUPS, {}, false, -1, &g_interrupted});
    if (answer.outcome == Answer::Outcome::DONE && answer.words.empty()) {
        (void)std::puts("This process has no command groups.");
    }
    for (size_t i = 0; i + 1 < answer.words.size(); i += 2) {
        (void)std::printf("  %-20s%s\n", answer.words[i].c_str(), answer.words[i + 1].c_str());
    }
    const std::string problem = FlushOutput();
    std::clearerr(stdout); // what the shell prints next may get through
    return problem.empty() ? Report(process, "", answer) : Tell(EXIT_CODE_NO_ANSWER, problem);
}

std::vector<std::string> GroupNames(const Process &process)
{
    const std::vector<std::string> words = WordsForCompletion(process, nordiag::FrameType::GROUPS, {});
    std::vector<std::string> names;
    for (size_t i = 0; i < words.size(); i += 2) {
        names.push_back(words[i]);
    }
    return names;
}

/** Empty if there is no home, and then no history. */
std::string HistoryFile()
{
    namespace fs = std::filesystem;
    const char *state = std::getenv("XDG_STATE_HOME");
    const char *home = std::getenv("HOME");
    fs::path folder;
    if (state != nullptr && *state == '/') {
        folder = state;
    } else if (home != nullptr && *home == '/') {
        folder = fs::path(home) / ".local/state";
    } else {
        return "";
    }
    folder /= "nordiag";
    std::error_code failure;
    (void)fs::create_directories(folder, failure);
    (void)chmod(folder.c_str(),
                S_IRWXU); // commands may hold what is nobody else's business
    return failure ? "" : folder / "history";
}

struct EndHistory {
    void operator()(History *history) const { history_end(history); }
};
struct EndEditor {
    void operator()(EditLine *editor) const { el_end(editor); }
};
struct EndTokenizer {
    void operator()(Tokenizer *tokenizer) const { tok_end(tokenizer); }
};

/** The lines typed so far, kept from shell to shell. */
class LineHistory {
public:
    LineHistory() : history_(history_init()), file_(HistoryFile())
    {
        (void)history(history_.get(), &event_, H_SETSIZE, kHistoryLines);
        (void)history(history_.get(), &event_, H_SETUNIQUE, 1);
        if (!file_.empty()) {
            (void)history(history_.get(), &event_, H_LOAD, file_.c_str());
        }
    }
    void Add(const char *line)
    {
        (void)history(history_.get(), &event_, H_ENTER, line);
        if (!file_.empty()) {
            const int fd = open(file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
            if (fd >= 0) {
                (void)close(fd);
                (void)history(history_.get(), &event_, H_SAVE, file_.c_str());
            }
        }
    }
    [[nodiscard]] History *Raw() const { return history_.get(); }

private:
    std::unique_ptr<History, EndHistory> history_;
    std::string file_;
    HistEvent event_{};
};

/** Lines of a terminal. */
class LineEditor {
public:
    explicit LineEditor(const Process &process)
        : process_(process), prompt_(process.name + "(" + std::to_string(process.id) + ")> "),
          editor_(el_init("nordiag", stdin, stdout, stderr))
    {
        if (editor_ == nullptr) {
            return;
        }
        EditLine *editor = editor_.get();
        (void)el_set(editor, EL_CLIENTDATA, this);
        (void)el_set(editor, EL_PROMPT, Prompt);
        (void)el_set(editor, EL_EDITOR, "emacs");
        (void)el_set(editor, EL_SIGNAL, 1);
        (void)el_set(editor, EL_HIST, history, history_.Raw());
        (void)el_set(editor, EL_ADDFN, "complete-word", "Complete the word", CompleteWord);
        (void)el_set(editor, EL_BIND, "^I", "complete-word", nullptr);
        (void)el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
        // Ctrl-C comes as a letter and empties the line; as a signal it would end the shell.
        (void)el_set(editor, EL_ADDFN, "abandon-line", "Begin the line anew", AbandonLine);
        (void)el_set(editor, EL_BIND, "^C", "abandon-line", nullptr);
        (void)el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
        (void)el_source(editor, nullptr);
    }
    [[nodiscard]] bool Works() const { return editor_ != nullptr; }
    /** @return false at the end of the input. */
    bool Next(std::string &line)
    {
        int length = 0;
        const char *text = el_gets(editor_.get(), &length);
        if (text == nullptr || length <= 0) {
            (void)std::fputc('\n', stdout);
            return false;
        }
        line.assign(text, static_cast<size_t>(length));
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        if (line.find_first_not_of(" \t") != std::string::npos) {
            history_.Add(line.c_str());
        }
        return true;
    }

private:
    static LineEditor &Of(EditLine *editor)
    {
        void *data = nullptr;
        (void)el_get(editor, EL_CLIENTDATA, &data);
        return *static_cast<LineEditor *>(data);
    }
    static char *Prompt(EditLine *editor) { return Of(editor).prompt_.data(); }
    static unsigned char CompleteWord(EditLine *editor, int)
    {
        const Process &process = Of(editor).process_;
        const LineInfo *line = el_line(editor);
        const CompletionSource source = {[&process] { return GroupNames(process); },
                                         [&process](const std::string &group) {
                                             return WordsForCompletion(process, nordiag::FrameType::COMMANDS, {group});
                                         }};
        const Completion completion =
            Complete({line->buffer, static_cast<size_t>(line->cursor - line->buffer)}, source);
        if (!completion.insertion.empty()) {
            return el_insertstr(editor, completion.insertion.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
        }
        if (completion.candidates.empty()) {
            return CC_ERROR;
        }
        (void)std::fputc('\n', stdout);
        for (const std::string &candidate : completion.candidates) {
            (void)std::printf("%s  ", candidate.c_str());
        }
        (void)std::fputc('\n', stdout);
        (void)std::fflush(stdout);
        return CC_REDISPLAY;
    }
    static unsigned char AbandonLine(EditLine *editor, int)
    {
        const LineInfo *line = el_line(editor);
        (void)el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
        el_deletestr(editor, static_cast<int>(line->lastchar - line->buffer));
        (void)std::fputs("^C\n", stdout);
        (void)std::fflush(stdout);
        return CC_REDISPLAY;
    }

    const Process &process_;
    std::string prompt_;
    LineHistory history_;
    std::unique_ptr<EditLine, EndEditor> editor_;
};

bool IsThere(const Process &process)
{
    const Answer answer = Ask(process.peer, {nordiag::FrameType::STATE, {}, false, kCompletionPatienceMs, nullptr});
    // A process on its way out may still accept, and cuts the connection then.
    return answer.outcome != Answer::Outcome::DESERTED && answer.outcome != Answer::Outcome::STRANGER &&
           answer.outcome != Answer::Outcome::FAILED;
}

/** @return false if a quotation has no end. */
bool Split(const std::string &line, std::vector<std::string> &words)
{
    const std::unique_ptr<Tokenizer, EndTokenizer> tokenizer(tok_init(nullptr));
    int count = 0;
    const char **tokens = nullptr;
    if (tok_str(tokenizer.get(), line.c_str(), &count, &tokens) != 0) {
        return false;
    }
    words.assign(tokens, tokens + count);
    return true;
}

/** @return true if the shell goes on; @p status is that of the line. */
bool RunLine(const Process &process, const std::string &line, int &status)
{
    std::vector<std::string> words;
    if (!Split(line, words)) {
        status = Tell(EXIT_CODE_USAGE, "a quotation has no end; close it, or put a "
                                       "backslash before the quote");
        return true;
    }
    if (words.empty() || words.front().empty()) {
        return true;
    }
    if (words.front() == "exit" || words.front() == "quit") {
        return false;
    }
    if (IsTooLong(words)) {
        status = Tell(EXIT_CODE_USAGE, "the command is too long; it may have 64 words and 16384 characters");
        return true;
    }
    status = RunCommand(process, words);
    return status != EXIT_CODE_NO_ANSWER || IsThere(process);
}

int RunLinesOfTerminal(const Process &process, LineEditor &editor)
{
    (void)std::printf("Debug shell of %s. Tab completes, 'help' lists the "
                      "commands, 'exit' leaves.\n",
                      Title(process).c_str());
    int status = EXIT_CODE_OK;
    std::string line;
    while (editor.Next(line) && RunLine(process, line, status)) {
    }
    return status;
}

int RunLinesOfInput(const Process &process)
{
    int status = EXIT_CODE_OK;
    std::string line;
    while (std::getline(std::cin, line) && RunLine(process, line, status)) {
    }
    return status;
}

} // namespace

int RunCommand(const Process &process, const std::vector<std::string> &words)
{
    const InterruptGuard guard;
    if (words.front() != "help") {
        const Request run = {nordiag::FrameType::RUN, words, true, -1, &g_interrupted};
        return Report(process, words.front(), Ask(process.peer, run));
    }
    if (words.size() == 1) {
        return ListGroups(process);
    }
    if (words.size() > 2) {
        return Tell(EXIT_CODE_USAGE, "help takes one command group");
    }
    const Request help = {nordiag::FrameType::HELP, {words[1]}, true, -1, &g_interrupted};
    return Report(process, words[1], Ask(process.peer, help));
}

int RunShell(const Process &process)
{
    (void)std::setlocale(LC_ALL, "");
    if (isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0) {
        LineEditor editor(process);
        if (editor.Works()) {
            return RunLinesOfTerminal(process, editor);
        }
    }
    return RunLinesOfInput(process);
}
