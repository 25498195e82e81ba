/**
 * @file watch.h
 * @brief A table of the disks that refreshes itself.
 */
#ifndef CORVANECTL_WATCH_H
#define CORVANECTL_WATCH_H

#include "options.h"
#include "server.h"

/** @return the exit status; a server that goes away later is waited for. */
int Watch(const Server &server, const Options &options);

#endif
