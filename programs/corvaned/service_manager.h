/**
 * @file service_manager.h
 * @brief Says to the service manager how far this process is.
 */
#ifndef CORVANED_SERVICE_MANAGER_H
#define CORVANED_SERVICE_MANAGER_H

/**
 * @brief Send a state such as "READY=1" to the socket that NOTIFY_SOCKET names; without one there is nobody to tell.
 * @return false if there is a socket and the message did not reach it.
 */
bool NotifyServiceManager(const char *state);

#endif
