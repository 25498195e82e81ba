/**
 * @file mount_namespace.h
 * @brief A view of the file system for this process and its children alone.
 */
#ifndef MOUNT_NAMESPACE_H
#define MOUNT_NAMESPACE_H

#include <string>

/**
 * @brief Give this process empty folders at /tmp, /var/tmp and /var/log and the accounts corvane_user and
 *        corvane_group, without touching the machine's. @p keep stays reachable at its path. Needs root.
 * @return what went wrong; empty when nothing did.
 */
std::string EnterPrivateMounts(const std::string &keep);

#endif
