#include "abi.h"

#include <cstdlib>
#include <dlfcn.h>

namespace lib {

namespace {

void *g_library = nullptr;

} // namespace

void Open()
{
    if (g_library != nullptr) {
        return;
    }
    // Lazily: what the library asks of its host comes to light when it is called, as in a real host.
    g_library = dlopen(CORVANE_LIB_DIR "/libcorvane.so", RTLD_LAZY | RTLD_GLOBAL);
    if (g_library == nullptr) {
        (void)std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
}

void *Lookup(const char *name)
{
    return g_library == nullptr ? nullptr : dlsym(g_library, name);
}

void *Address(const char *name)
{
    void *address = Lookup(name);
    if (address == nullptr) {
        (void)std::fprintf(stderr, "the library has no %s\n", name);
        std::abort();
    }
    return address;
}

} // namespace lib
