/**
 * @file screen.h
 * @brief Standard output: what it is and how large, and frames that replace each other on it.
 */
#ifndef CORVANECTL_SCREEN_H
#define CORVANECTL_SCREEN_H

#include <string>
#include <vector>

#include "table.h"

struct ScreenSize {
    size_t columns = 80;
    size_t lines = 24;
};

class Screen {
public:
    Screen();
    /** Frames can replace each other. */
    [[nodiscard]] bool IsTerminal() const { return terminal_; }
    /** As it is now: a person may change the window. */
    [[nodiscard]] static ScreenSize Size();
    /** What a table may take. */
    [[nodiscard]] Page TablePage() const;

private:
    bool terminal_;
    bool coloured_;
};

/** From now on SIGINT and SIGTERM, if they are not ignored, end the program with status 0. */
void EndOnSignals();

/**
 * From now on frames replace each other on the terminal. SIGINT, SIGTERM and SIGHUP put it back and end the program
 * with status 0.
 */
void BeginFrames();
void EndFrames();
/** Lines without their ends, of which those fit that are there. */
std::string Frame(const std::vector<std::string> &lines);

/** Sleeps, or until the window changes. @return whether the time is up. */
bool SleepUnlessResized(int seconds);

/** To be called before anything is written: what stands between two FlushOutput() goes out in one piece, so that a
 *  signal does not leave half of it. */
void WriteAtOnce();
/** @return what is wrong with standard output, or nothing. */
std::string FlushOutput();

#endif
