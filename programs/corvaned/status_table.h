/**
 * @file status_table.h
 * @brief The table of online disks that corvaned prints for --status-interval.
 */
#ifndef CORVANED_STATUS_TABLE_H
#define CORVANED_STATUS_TABLE_H

#include <cstdio>

/** @brief Print one row for each online disk; what a disk has not reported yet is "-". Reads the data store only. */
void PrintStatusTable(std::FILE *out);

#endif
