/**
 * @file service_manager.h
 * @brief Says to the service manager how far this process is, and that it still works. For one thread of a process.
 */
#ifndef COMMON_SERVICE_MANAGER_H
#define COMMON_SERVICE_MANAGER_H

/**
 * @brief Send a state such as "READY=1" to the socket that NOTIFY_SOCKET names; without one there is nobody to tell.
 *
 * The first call opens a descriptor, which stays: a process that has run out of them can still say that it works.
 * @return false if there is a socket and the message did not reach it.
 */
bool NotifyServiceManager(const char *state);

/**
 * @brief How often "WATCHDOG=1" is to be sent: twice in the time after which the manager gives this process up.
 * @return milliseconds; 0 if WATCHDOG_USEC asks for nothing, or WATCHDOG_PID names another process.
 */
long WatchdogPeriodMs();

#endif
