/**
 * @file views.h
 * @brief The disks as tables and as JSON.
 */
#ifndef CORVANECTL_VIEWS_H
#define CORVANECTL_VIEWS_H

#include <string>
#include <vector>

#include "disks.h"
#include "infrastructure/common/corvane_raii.h"
#include "table.h"

/** Of "list": head and rows. */
std::vector<std::string> ListTable(const std::vector<Disk> &disks, const Page &page);
CJsonPtr ListJson(const std::vector<Disk> &disks);

/** Of "watch": head and rows. */
std::vector<std::string> WatchTable(const std::vector<Disk> &disks, const Page &page);
/** @param time Local, as a text. */
CJsonPtr WatchJson(const std::vector<Disk> &disks, const std::string &time);
/** "12 disks: 9 normal, 1 slow, 1 prefail, 1 fault". */
std::string Counts(const std::vector<Disk> &disks);
/** A line below a table: why it is empty, or why rows hold "?" alone; nothing where neither is so. */
std::string TableNote(const std::vector<Disk> &disks);
/** Those in trouble first, then those that are not watched; by identifier among each other. */
void SortByTrouble(std::vector<Disk> &disks);

#endif
