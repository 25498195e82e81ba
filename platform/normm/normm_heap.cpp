#include "normm_account.h"
#include "platform/normm.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr uint32_t kTaken = 0x6e6f726d;
constexpr uint32_t kReleased = 0x66726565;

/** Stands before each block; its size keeps the block aligned for any type. */
struct alignas(std::max_align_t) BlockHeader {
    uint64_t size;
    uint32_t module;
    uint32_t state;
};
static_assert(sizeof(BlockHeader) == 16);

struct Account {
    std::atomic<uint64_t> bytes;
    std::atomic<uint64_t> blocks;
};

std::array<Account, NORMM_MODULES> g_accounts;

Account &AccountOf(uint32_t module) noexcept
{
    return g_accounts[std::min(module, NORMM_MODULES - 1)];
}

} // namespace

void AccountTake(uint32_t module, uint64_t bytes) noexcept
{
    Account &account = AccountOf(module);
    account.bytes.fetch_add(bytes, std::memory_order_relaxed);
    account.blocks.fetch_add(1, std::memory_order_relaxed);
}

void AccountGive(uint32_t module, uint64_t bytes) noexcept
{
    Account &account = AccountOf(module);
    account.bytes.fetch_sub(bytes, std::memory_order_relaxed);
    account.blocks.fetch_sub(1, std::memory_order_relaxed);
}

#define NORMM_API __attribute__((visibility("default")))

extern "C" {

NORMM_API void *normm_malloc(uint64_t size, uint32_t module, const char *) noexcept
{
    if (size > PTRDIFF_MAX - sizeof(BlockHeader)) {
        return nullptr;
    }
    auto *header = static_cast<BlockHeader *>(std::malloc(sizeof(BlockHeader) + size));
    if (header == nullptr) {
        return nullptr;
    }
    *header = {size, module, kTaken};
    AccountTake(module, size);
    return header + 1;
}

NORMM_API void normm_free(void *ptr, uint32_t module, const char *name) noexcept
{
    if (ptr == nullptr) {
        return;
    }
    BlockHeader *header = static_cast<BlockHeader *>(ptr) - 1;
    if (header->state != kTaken) {
        (void)std::fprintf(stderr, "normm: %p is no block of the heap, module %u, %s\n", ptr, module,
                           name != nullptr ? name : "?");
        return;
    }
    // The account that was charged, whoever gives the block back.
    AccountGive(header->module, header->size);
    header->state = kReleased;
    std::free(header);
}

NORMM_API void normm_usage(uint32_t module, uint64_t *bytes, uint64_t *blocks) noexcept
{
    const Account &account = AccountOf(module);
    if (bytes != nullptr) {
        *bytes = account.bytes.load(std::memory_order_relaxed);
    }
    if (blocks != nullptr) {
        *blocks = account.blocks.load(std::memory_order_relaxed);
    }
}

} // extern "C"
