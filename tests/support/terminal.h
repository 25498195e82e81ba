/**
 * @file terminal.h
 * @brief A program on a pseudo-terminal: what a person at the keyboard sees and types.
 */
#ifndef TERMINAL_H
#define TERMINAL_H

#include <string>
#include <sys/types.h>
#include <vector>

class Terminal {
public:
    explicit Terminal(const std::vector<std::string> &arguments, unsigned short columns = 200,
                      unsigned short lines = 24);
    /** Kills the program if it still runs. */
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    [[nodiscard]] pid_t Pid() const { return pid_; }
    /** Changes the window's size, which the program is told. */
    void Resize(unsigned short columns, unsigned short lines) const;
    void Type(const std::string &keys) const;
    /**
     * Waits until the text is on the screen, after what was waited for before. @return false if it does not come.
     * @param[out] before  What stands between the two, unless null.
     */
    bool WaitFor(const std::string &text, std::string *before = nullptr);
    /** The same for a prompt, and until keys reach the program one by one: before, the terminal keeps lines back. */
    bool WaitForPrompt(const std::string &text);
    /** @return as ChildProcess::WaitForExit(). */
    int WaitForExit();
    /** All that came since the last text that was waited for. */
    [[nodiscard]] std::string Rest() const { return screen_.substr(seen_); }

private:
    bool ReadSome(long deadline);

    pid_t pid_ = -1;
    int master_ = -1;
    std::string screen_;
    size_t seen_ = 0;
};

#endif
