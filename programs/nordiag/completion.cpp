#include "completion.h"

#include <algorithm>

namespace {

std::vector<std::string> WordsOf(std::string_view line)
{
    std::vector<std::string> words(1);
    for (const char letter : line) {
        if (letter != ' ' && letter != '\t') {
            words.back() += letter;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    return words;
}

/** All that can stand where the last word stands. */
std::vector<std::string> Possibilities(const std::vector<std::string> &words, const CompletionSource &source)
{
    if (words.size() == 1) {
        std::vector<std::string> all = source.groups();
        all.insert(all.end(), {"exit", "help", "quit"});
        return all;
    }
    if (words.size() == 2) {
        return words.front() == "help" ? source.groups() : source.subCommands(words.front());
    }
    return {};
}

} // namespace

Completion Complete(std::string_view line, const CompletionSource &source)
{
    const std::vector<std::string> words = WordsOf(line);
    const std::string &start = words.back();
    Completion completion;
    for (const std::string &word : Possibilities(words, source)) {
        if (word.compare(0, start.size(), start) == 0) {
            completion.candidates.push_back(word);
        }
    }
    std::vector<std::string> &found = completion.candidates;
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    if (found.empty()) {
        return completion;
    }
    // Sorted: what the first and the last share, all share.
    const std::string &first = found.front();
    const auto [end, ignored] = std::mismatch(first.begin(), first.end(), found.back().begin(), found.back().end());
    completion.insertion.assign(first.begin() + static_cast<std::ptrdiff_t>(start.size()), end);
    if (found.size() == 1) {
        completion.insertion += ' ';
    }
    return completion;
}
