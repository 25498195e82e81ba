/**
 * @file child_process.h
 * @brief A program that a test starts, watches and ends.
 */
#ifndef CHILD_PROCESS_H
#define CHILD_PROCESS_H

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

class ChildProcess {
public:
    /** Starts the program; @p environment holds "NAME=value" lines that are added to the test's own. */
    explicit ChildProcess(const std::vector<std::string> &arguments, const std::vector<std::string> &environment = {});
    /** Kills it if it still runs. */
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    pid_t Pid() const { return pid_; }
    /** Waits until standard output holds the text. @return false if the program ended or a minute passed before. */
    bool WaitForOutput(const std::string &text);
    /** The same for any condition on all of the output; it is asked again whenever something has been written. */
    bool WaitForOutput(const std::function<bool(const std::string &output)> &holds);
    void Signal(int number) const;
    /** Ends its standard input. */
    void CloseInput();
    /** Waits for its end. @return its exit code; 128 + n if signal n ended it; -1 if it did not end in a minute. */
    int WaitForExit();
    bool Running();
    /** What it has written so far. */
    const std::string &Output() const { return output_; }
    const std::string &Errors() const { return errors_; }

private:
    /** Reads what there is, or waits until @p deadlineMs for some. @return false when both ends are closed or time is
     * up. */
    bool Pump(long deadlineMs);

    pid_t pid_ = -1;
    int input_ = -1;
    int outputFd_ = -1;
    int errorsFd_ = -1;
    bool ended_ = false;
    int status_ = 0;
    std::string output_;
    std::string errors_;
};

#endif
