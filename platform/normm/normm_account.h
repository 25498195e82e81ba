/**
 * @file normm_account.h
 * @brief The modules' accounts, for the sources of this library. No locks; any thread.
 */
#ifndef NORMM_ACCOUNT_H
#define NORMM_ACCOUNT_H

#include <cstdint>

/** Charges one block of @p bytes to the module. */
void AccountTake(uint32_t module, uint64_t bytes) noexcept;
void AccountGive(uint32_t module, uint64_t bytes) noexcept;

#endif
