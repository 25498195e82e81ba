/**
 * @file disks.h
 * @brief All online disks, composed of the server's answers about each.
 */
#ifndef CORVANECTL_DISKS_H
#define CORVANECTL_DISKS_H

#include <map>
#include <optional>
#include <vector>

#include "answer_text.h"
#include "server.h"

struct Disk {
    int id = -1;
    bool watched = true; ///< false: the service keeps no records of this identifier
    /** What cannot be told of this disk at present is empty; the serial number is always there. */
    DiskIdentity identity;
    DiskVerdict verdict;
    std::optional<double> utilization; ///< percent; only where it was asked for
};

class Disks {
public:
    /** @param withIo Ask for the utilisation as well. */
    Disks(Server server, bool withIo) : server_(std::move(server)), withIo_(withIo) {}

    /**
     * Ask for all of them. A disk that leaves in between is left out; one whose record cannot be told keeps its place.
     * What identifies a disk is asked for once, and nothing about a disk that is not watched.
     * @param[out] disks By identifier.
     * @return the answer that failed, or one that is DONE.
     */
    Answer Collect(std::vector<Disk> &disks);

private:
    Server server_;
    bool withIo_;
    std::map<int, DiskIdentity> known_;
};

#endif
