/**
 * @file DiskClass.h
 * @brief The disk classes of the configuration commands, by the number that an operator gives.
 */
#ifndef CLI_DISK_CLASS_H
#define CLI_DISK_CLASS_H

#include <array>

namespace CORVANE_CLI {

/** Sections of the settings. */
constexpr std::array<const char *, 4> kDiskClassNodes = {"sata_ssd_disk", "sas_ssd_disk", "nvme_disk", "sas_hdd"};
constexpr int kDiskClasses = static_cast<int>(kDiskClassNodes.size());
constexpr int kDiskClassHdd = 3;
constexpr int kDiskClassNodeWidth = 14; /**< in tables */

} // namespace CORVANE_CLI

#endif
