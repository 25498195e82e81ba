#include "table.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr char kCutMark = '~';
constexpr const char *kPlain = "\033[0m";
constexpr const char *kBold = "\033[1m";
constexpr const char *kIndent = "    ";

const char *CodeOf(Colour colour)
{
    switch (colour) {
    case Colour::YELLOW:
        return "\033[33m";
    case Colour::RED:
        return "\033[31m";
    case Colour::GREY:
        return "\033[90m";
    default:
        return "";
    }
}

std::string Painted(const std::string &text, const char *code, const Page &page)
{
    return page.coloured && *code != '\0' ? code + text + kPlain : text;
}

std::string Cut(std::string text, size_t width, bool tail)
{
    if (text.size() > width) {
        text = tail ? text.substr(text.size() - width) : text.substr(0, width);
        (tail ? text.front() : text.back()) = kCutMark;
    }
    return text;
}

class Layout {
public:
    Layout(const std::vector<Column> &columns, const std::vector<std::vector<Cell>> &rows, const Page &page)
        : columns_(columns), page_(page)
    {
        for (size_t c = 0; c < columns.size(); c++) {
            size_t width = columns[c].head.size();
            for (const std::vector<Cell> &row : rows) {
                width = std::max(width, row[c].text.size());
            }
            widths_.push_back(width);
        }
        if (page.width != 0) {
            Fit();
        }
    }

    [[nodiscard]] std::string Head() const
    {
        std::vector<Cell> heads;
        for (const Column &column : columns_) {
            heads.push_back({column.head, Colour::NONE});
        }
        return Painted(Line(heads), kBold, page_);
    }

    [[nodiscard]] std::string Row(const std::vector<Cell> &row) const
    {
        std::string text = Line(row);
        if (folded_ && !row.back().text.empty() && !row.back().minor) {
            text += std::string("\n") + kIndent + row.back().text;
        }
        return text;
    }

private:
    [[nodiscard]] size_t Width() const { return std::accumulate(widths_.begin(), widths_.end(), widths_.size() - 1); }

    void Fit()
    {
        if (Width() > page_.width && columns_.back().folds) {
            folded_ = true;
            widths_.pop_back();
        }
        for (size_t c = 0; c < widths_.size() && Width() > page_.width; c++) {
            if (columns_[c].shrinks) {
                const size_t excess = Width() - page_.width;
                widths_[c] = std::max(columns_[c].head.size(), widths_[c] > excess ? widths_[c] - excess : 0);
            }
        }
    }

    [[nodiscard]] std::string Line(const std::vector<Cell> &row) const
    {
        std::string line;
        size_t pending = 0; // blanks, of which none end a line
        for (size_t c = 0; c < widths_.size(); c++) {
            const std::string text = Cut(row[c].text, widths_[c], columns_[c].tail);
            const size_t room = widths_[c] - text.size();
            if (!text.empty()) {
                line += std::string(pending + (columns_[c].right ? room : 0), ' ');
                line += Painted(text, CodeOf(row[c].colour), page_);
                pending = columns_[c].right ? 0 : room;
            } else {
                pending += room;
            }
            pending++;
        }
        return line;
    }

    const std::vector<Column> &columns_;
    const Page &page_;
    std::vector<size_t> widths_;
    bool folded_ = false;
};

} // namespace

std::vector<std::string> LayOut(const std::vector<Column> &columns, const std::vector<std::vector<Cell>> &rows,
                                const Page &page)
{
    const Layout layout(columns, rows, page);
    std::vector<std::string> lines = {layout.Head()};
    for (const std::vector<Cell> &row : rows) {
        lines.push_back(layout.Row(row));
    }
    return lines;
}
