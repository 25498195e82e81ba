/**
 * @file status.h
 * @brief The status of the online disks that corvaned prints for --status-interval.
 */
#ifndef CORVANED_STATUS_H
#define CORVANED_STATUS_H

#include <cstdio>

#include "options.h"

/**
 * @brief Print the status once, as a whole. What keeps it from being printed is told on standard error.
 * @note May wait for the data store, which may wait for a peer.
 */
void PrintStatus(std::FILE *out, Options::Format format) noexcept;

#endif
