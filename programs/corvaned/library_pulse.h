/**
 * @file library_pulse.h
 * @brief Tells a library that works, or waits for a peer, from one that is stuck.
 *
 * Every part of the library takes g_dataMgrLock sooner or later, so whoever gets it knows that nothing is stuck. It is
 * also held over exchanges with peers, of up to 15 seconds each, and a refresh holds it over all disks: while storage
 * software hangs, nobody gets it for minutes. The library shows even then that it goes on: the number of disks
 * changes, or the lock that is held over an exchange comes free.
 */
#ifndef CORVANED_LIBRARY_PULSE_H
#define CORVANED_LIBRARY_PULSE_H

#include <cstdint>

/** For one thread, after the start. Looks at the locks by trying, so it neither waits nor takes memory. */
class LibraryPulse {
public:
    LibraryPulse() noexcept;
    /** @return whether the library has moved since the call before. */
    [[nodiscard]] bool Beats() noexcept;

private:
    /** A lock that is held over an exchange with a peer. */
    class Exchange {
    public:
        /** @return whether it was held when it was looked at before, and is free. */
        [[nodiscard]] bool HasEnded(void *const &lock) noexcept;
        void Forget() noexcept { held_ = false; }

    private:
        bool held_ = false;
    };

    /** @return whether the number of disks has changed since it was looked at before. */
    [[nodiscard]] bool DisksMoved() noexcept;

    uint64_t disks_ = 0;
    Exchange message_; /**< to the data agent */
    Exchange fetch_;   /**< of device lists and base records */
};

#endif
