/**
 * @file status_json.h
 * @brief The online disks as one line of JSON, for scripts.
 */
#ifndef CORVANED_STATUS_JSON_H
#define CORVANED_STATUS_JSON_H

#include <cstdio>

/** @brief Print one JSON object on one line; what a disk has not reported yet is left out. Reads the data store only.
 */
void PrintStatusJson(std::FILE *out);

#endif
