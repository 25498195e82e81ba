#include "disks.h"

#include <algorithm>

#include "cli/common/CliResultCode.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"

using Outcome = Answer::Outcome;

namespace {

/** What one answer is about. */
struct Question {
    enum class About { IDENTITY, VERDICT, IO };
    int id;
    About about;
};

const char *CommandOf(Question::About about)
{
    switch (about) {
    case Question::About::IDENTITY:
        return "disk_info";
    case Question::About::VERDICT:
        return "drm_info";
    default:
        return "iostat_info";
    }
}

std::string RequestOf(const Question &question)
{
    return std::string("show ") + CommandOf(question.about) + " disk_id=" + std::to_string(question.id);
}

bool IsRefusal(const Answer &answer, int code)
{
    return answer.outcome == Outcome::REFUSED && answer.code == code;
}

/** The disk has left since it was listed. */
bool HasLeft(const Answer &answer)
{
    return IsRefusal(answer, CORVANE_CLI::CLI_DB_ID_NOT_EXIST);
}

/** This record of this disk is not there: a disk has no I/O statistics before its agent has sent two samples. */
bool HasNoRecord(const Answer &answer)
{
    return IsRefusal(answer, CORVANE_CLI::CLI_COMMAND_EXEC_FAILED);
}

/** @return false if the text is none that answers this. */
bool Take(const Question &question, const std::string &text, Disk &disk)
{
    switch (question.about) {
    case Question::About::IDENTITY: {
        const auto identity = ReadDiskIdentity(text);
        if (identity) {
            disk.identity = *identity;
        }
        return identity.has_value();
    }
    case Question::About::VERDICT: {
        const auto verdict = ReadDiskVerdict(text);
        disk.verdict = verdict.value_or(DiskVerdict{});
        return verdict.has_value();
    }
    default:
        disk.utilization = PercentOf(FieldOf(FieldsOf(text), "utilization"));
        return disk.utilization.has_value();
    }
}

} // namespace

Answer Disks::Collect(std::vector<Disk> &disks)
{
    disks.clear();
    Answer summary = Ask(server_, "show summary");
    if (summary.outcome != Outcome::DONE) {
        return summary;
    }
    const auto rows = ReadSummary(summary.text);
    if (!rows) {
        return Unreadable("show summary");
    }

    std::map<int, Disk> found;
    std::vector<Question> questions;
    for (const SummaryRow &row : *rows) {
        Disk &disk = found[row.id];
        disk.id = row.id;
        disk.identity.serial = row.serial;
        disk.watched = row.id < static_cast<int>(DATA_MGR_SET_ID_LIMIT);
        if (!disk.watched) {
            continue; // every question about it is answered as if there were no such disk
        }
        const auto known = known_.find(row.id);
        if (known != known_.end() && known->second.serial == row.serial) {
            disk.identity = known->second;
        } else {
            questions.push_back({row.id, Question::About::IDENTITY});
        }
        questions.push_back({row.id, Question::About::VERDICT});
        if (withIo_) {
            questions.push_back({row.id, Question::About::IO});
        }
    }
    std::vector<std::string> requests(questions.size());
    std::transform(questions.begin(), questions.end(), requests.begin(), RequestOf);
    const std::vector<Answer> answers = AskAll(server_, requests);

    const auto failed = std::find_if(answers.begin(), answers.end(), [](const Answer &answer) {
        return answer.outcome != Outcome::DONE && !HasLeft(answer) && !HasNoRecord(answer) &&
               !(answer.outcome == Outcome::NO_CONNECTION && answer.problem.empty()); // not asked any more
    });
    if (failed != answers.end()) {
        return *failed;
    }
    for (size_t i = 0; i < answers.size(); i++) {
        if (HasNoRecord(answers[i])) {
            continue;
        }
        if (answers[i].outcome != Outcome::DONE) {
            found.erase(questions[i].id);
            continue;
        }
        const auto disk = found.find(questions[i].id);
        if (disk != found.end() && !Take(questions[i], answers[i].text, disk->second)) {
            return Unreadable(requests[i]);
        }
    }
    known_.clear();
    for (auto &[id, disk] : found) {
        if (!disk.identity.type.empty()) {
            known_[id] = disk.identity;
            if (disk.verdict.prediction == "pending" && !IsLifePredicted(disk.identity.type)) {
                disk.verdict.prediction = "none";
            }
        }
        disks.push_back(disk);
    }
    return summary;
}
