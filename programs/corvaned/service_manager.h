/**
 * @file service_manager.h
 * @brief Says to the service manager how far this process is, and that it still works.
 */
#ifndef CORVANED_SERVICE_MANAGER_H
#define CORVANED_SERVICE_MANAGER_H

/**
 * @brief Send a state such as "READY=1" to the socket that NOTIFY_SOCKET names; without one there is nobody to tell.
 * @return false if there is a socket and the message did not reach it.
 */
bool NotifyServiceManager(const char *state);

/**
 * @brief How often "WATCHDOG=1" is to be sent: twice in the time after which the manager gives this process up.
 * @return milliseconds; 0 if WATCHDOG_USEC asks for nothing, or WATCHDOG_PID names another process.
 */
long WatchdogPeriodMs();

#endif
