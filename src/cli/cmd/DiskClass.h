/**
 * @file DiskClass.h
 * @brief The disk classes of the configuration commands, by the number that an operator gives.
 */
#ifndef CLI_DISK_CLASS_H
#define CLI_DISK_CLASS_H

#include "config/corvane_config.h"

namespace CORVANE_CLI {

/** Their sections of the settings are in g_diskTypeConfigNames. */
constexpr int kDiskClasses = CORVANE_CONFIG_DISK_TYPES;
constexpr int kDiskClassHdd = 3;
constexpr int kDiskClassNodeWidth = 14; /**< in tables */

} // namespace CORVANE_CLI

#endif
