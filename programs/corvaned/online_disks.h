/**
 * @file online_disks.h
 * @brief What both forms of corvaned's status share: the list of disks, and names and texts of their fields.
 */
#ifndef CORVANED_ONLINE_DISKS_H
#define CORVANED_ONLINE_DISKS_H

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "data_mgr/disk_types.h"

/** @brief Copies of the base records of all online disks, by identifier. @return false if they cannot be listed. */
bool ListOnlineDisks(std::vector<DiskMgrObj> &disks);

/** @brief The last health record of a disk. @return false if its agent has not reported one yet. */
bool ReadHealth(uint32_t diskId, DiskHealthInfo &health);

const char *DiskStateName(uint32_t state);
const char *DiskTypeName(uint32_t type);

/** @brief The local time as "2026-01-31 23:59:59". */
std::string LocalTimeText();

/** A text field of a disk. Devices fill them with what they like, and the field may lack a terminator. */
template <size_t N>
std::string FieldText(const char (&field)[N])
{
    std::string text(field, strnlen(field, N));
    for (char &letter : text) {
        if (std::isprint(static_cast<unsigned char>(letter)) == 0) {
            letter = '?';
        }
    }
    return text;
}

#endif
