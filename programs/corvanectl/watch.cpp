#include "watch.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "disks.h"
#include "exit_codes.h"
#include "failure.h"
#include "json_answers.h"
#include "screen.h"
#include "views.h"

namespace {

constexpr size_t kLinesAround = 4; // title, head, footer, and the cursor's

std::string LocalTime()
{
    std::array<char, 32> text{};
    const std::time_t now = std::time(nullptr);
    tm local = {};
    (void)std::strftime(text.data(), text.size(), "%F %T", localtime_r(&now, &local));
    return text.data();
}

/** What has been seen at one moment. */
struct Sight {
    std::string time;
    Answer answer;
    std::vector<Disk> disks;
};

std::string Title(const Sight &sight)
{
    return sight.time + "  " + Counts(sight.disks);
}

std::string Plain(const Sight &sight, const Page &page)
{
    std::string text = Title(sight) + "\n";
    for (const std::string &row : WatchTable(sight.disks, page)) {
        text += row + "\n";
    }
    if (const std::string note = TableNote(sight.disks); !note.empty()) {
        text += note + "\n";
    }
    return text + "\n";
}

/** The disks stay as they were last seen while there is no answer; @p trouble says so. */
std::string Live(const Sight &sight, const Screen &screen, const Options &options, const std::string &trouble)
{
    const std::string note = TableNote(sight.disks);
    const size_t around = kLinesAround + (note.empty() ? 0 : 1);
    const size_t room = Screen::Size().lines > around + 1 ? Screen::Size().lines - around : 1;
    std::vector<std::string> lines = WatchTable(sight.disks, screen.TablePage());
    const size_t hidden = lines.size() > room + 1 ? lines.size() - room - 1 : 0;
    lines.resize(lines.size() - hidden);
    lines.insert(lines.begin(), Title(sight));
    if (!note.empty()) {
        lines.push_back(note);
    }
    std::string footer = hidden > 0 ? std::to_string(hidden) + " more disks, normal ones last; " : "";
    footer += "pauses " + std::to_string(options.intervalSeconds) + " s after each refresh, Ctrl-C ends";
    lines.push_back(trouble.empty() ? footer : trouble);
    return Frame(lines);
}

class Watcher {
public:
    Watcher(const Server &server, const Options &options) : server_(server), options_(options), disks_(server, true) {}

    int Run()
    {
        EndOnSignals();
        WriteAtOnce();
        int status = Look();
        if (status != EXIT_CODE_OK) {
            (void)std::fprintf(stderr, "corvanectl: %s", trouble_.c_str());
            return status;
        }
        const bool live = screen_.IsTerminal() && !options_.json;
        if (live) {
            BeginFrames();
        }
        for (int count = 1;; count++) {
            Show(live);
            const std::string problem = FlushOutput();
            if (!problem.empty()) {
                (void)std::fprintf(stderr, "corvanectl: %s\n", problem.c_str());
                return EXIT_CODE_OTHER;
            }
            if (count == options_.count) {
                break;
            }
            while (!SleepUnlessResized(options_.intervalSeconds)) {
                Show(live);
                (void)FlushOutput();
            }
            (void)Look();
        }
        if (live) {
            EndFrames();
        }
        return trouble_.empty() ? EXIT_CODE_OK : status_;
    }

private:
    int Look()
    {
        std::vector<Disk> disks;
        const Answer answer = disks_.Collect(disks);
        trouble_.clear();
        status_ = EXIT_CODE_OK;
        if (answer.outcome != Answer::Outcome::DONE) {
            status_ = ExplainFailure(answer, server_, trouble_);
            return status_;
        }
        SortByTrouble(disks);
        sight_.disks = std::move(disks);
        sight_.time = LocalTime();
        return status_;
    }

    void Show(bool live) const
    {
        if (live) {
            std::fputs(Live(sight_, screen_, options_, trouble_.substr(0, trouble_.find('\n'))).c_str(), stdout);
        } else if (!trouble_.empty()) {
            (void)std::fprintf(stderr, "corvanectl: %s", trouble_.c_str());
        } else if (options_.json) {
            std::fputs(PrintedOnALine(WatchJson(sight_.disks, sight_.time).get()).c_str(), stdout);
        } else {
            std::fputs(Plain(sight_, screen_.TablePage()).c_str(), stdout);
        }
    }

    const Server &server_;
    const Options &options_;
    Disks disks_;
    Screen screen_;
    Sight sight_;
    std::string trouble_;
    int status_ = EXIT_CODE_OK;
};

} // namespace

int Watch(const Server &server, const Options &options)
{
    return Watcher(server, options).Run();
}
