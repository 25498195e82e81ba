/**
 * @file answer_text.h
 * @brief The values that stand in the texts of answers.
 */
#ifndef CORVANECTL_ANSWER_TEXT_H
#define CORVANECTL_ANSWER_TEXT_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/** The lines of a text, without the empty ones. */
std::vector<std::string> LinesOf(std::string_view text);
/** Without the blanks around it. */
std::string Trimmed(std::string_view text);
/** The words of a line. */
std::vector<std::string> WordsOf(std::string_view line);
/** Lines of "LABEL : VALUE", each trimmed. */
std::map<std::string, std::string> FieldsOf(std::string_view text);
std::string FieldOf(const std::map<std::string, std::string> &fields, const std::string &label);

/** A whole number and a unit behind it. @return nothing for any other text. */
std::optional<uint64_t> NumberOf(std::string_view text, std::string_view unit = "");
/** A percentage whose fraction counts hundredths: "12.5%" is 12.05. */
std::optional<double> PercentOf(std::string_view text);
/** "normal", "fault", "offline", "prefail", "slow", or nothing for an unknown text. */
std::string StateOf(std::string_view text);

/** A disk of "show summary". */
struct SummaryRow {
    int id = -1;
    std::string serial;
};
std::optional<std::vector<SummaryRow>> ReadSummary(std::string_view text);

/** "show disk_info". */
struct DiskIdentity {
    std::string state;
    std::string capacity;
    std::optional<uint64_t> sectorSize;
    std::string vendor;
    std::string model;
    std::string firmware;
    std::string serial;
    std::string device;
    std::string pciAddress;
    std::string type;
    std::optional<uint64_t> slot;
};
std::optional<DiskIdentity> ReadDiskIdentity(std::string_view text);

/** "show drm_info". */
struct DiskVerdict {
    /** "none": no life is predicted for this type; "pending": not yet; "done": score and life are there. */
    std::string prediction;
    std::optional<uint64_t> score;
    std::optional<uint64_t> lifeMonths; ///< 0 to 60; 61 stands for all above
    std::string state;
    std::string suggestion;
};
std::optional<DiskVerdict> ReadDiskVerdict(std::string_view text);
/** Whether the life of such disks is predicted. The server answers "not yet" for those solid-state disks as well for
 *  which it never will be. */
bool IsLifePredicted(std::string_view type);

#endif
