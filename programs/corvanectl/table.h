/**
 * @file table.h
 * @brief Columns of text, made to fit a terminal.
 */
#ifndef CORVANECTL_TABLE_H
#define CORVANECTL_TABLE_H

#include <string>
#include <vector>

enum class Colour { NONE, YELLOW, RED, GREY };

struct Column {
    std::string head;
    bool right = false;   ///< alignment
    bool shrinks = false; ///< is cut where room is missing, the left ones first
    bool folds = false;   ///< stands below the row where room is missing; only of the last column
    bool tail = false;    ///< of what is cut the end stays
};

struct Cell {
    std::string text;
    Colour colour = Colour::NONE;
    bool minor = false; ///< left out where its column folds
};

struct Page {
    size_t width = 0; ///< 0: as wide as it takes
    bool coloured = false;
};

/** @return head and rows, one text each, which may be of two lines where a column folds. */
std::vector<std::string> LayOut(const std::vector<Column> &columns, const std::vector<std::vector<Cell>> &rows,
                                const Page &page);

#endif
