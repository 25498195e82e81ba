/**
 * @file norax_timer_thread.h
 * @brief Start and stop of the timer thread, for norax.cpp alone. The caller serialises the two.
 */
#ifndef NORAX_TIMER_THREAD_H
#define NORAX_TIMER_THREAD_H

/** @return 0, or the errno number of a thread that could not be started. */
int TimerThreadStart() noexcept;
/** Ends the thread and frees every timer. Waits for a running procedure, unless called from it. */
void TimerThreadStop() noexcept;

#endif
