/**
 * @file output.h
 * @brief What of a process's text may reach a terminal, and the output that waits for standard output.
 */
#ifndef NORDIAG_OUTPUT_H
#define NORDIAG_OUTPUT_H

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

/**
 * Takes control characters out of a text that may come in pieces, those of two bytes in UTF-8 included: the terminal
 * would obey them. Newline and tabulator stay.
 */
class ControlFilter {
public:
    /** @return the byte, or what stands in its place */
    char Pass(char byte);

private:
    unsigned left_ = 0;        ///< bytes of a letter that are to come
    unsigned char lowest_ = 0; ///< that the next of them can be
};

/** The same for a text that stands on one line: newline and tabulator go as well. */
std::string OnePlainLine(std::string_view text);

/** Bytes for a descriptor that is written to only when it does not block. */
class OutputQueue {
public:
    explicit OutputQueue(int descriptor);
    void Add(std::string_view text);
    [[nodiscard]] bool Empty() const { return chunks_.empty(); }
    /** What waits to be written; the rest is let go in chunks. */
    [[nodiscard]] size_t Size() const { return size_; }
    /** @return false if it cannot be written to any more. */
    bool WriteSome();

private:
    int descriptor_;
    bool filters_; ///< a terminal
    ControlFilter filter_;
    std::deque<std::string> chunks_; ///< none is empty
    size_t written_ = 0;             ///< of the first one
    size_t size_ = 0;
};

#endif
