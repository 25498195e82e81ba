#include "status.h"

#include <cstdlib>
#include <exception>
#include <new>

#include "infrastructure/common/corvane_raii.h"
#include "status_json.h"
#include "status_table.h"

namespace {

/** What a memory stream leaves behind. */
struct StreamText {
    char *data = nullptr;
    size_t size = 0;

    StreamText() = default;
    ~StreamText() { std::free(data); }
    StreamText(const StreamText &) = delete;
    StreamText &operator=(const StreamText &) = delete;
};

void PrintWhole(std::FILE *out, Options::Format format)
{
    StreamText text;
    FilePtr stream(open_memstream(&text.data, &text.size));
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    if (format == Options::Format::JSON) {
        PrintStatusJson(stream.get());
    } else {
        PrintStatusTable(stream.get());
    }
    const bool failed = std::ferror(stream.get()) != 0;
    if (std::fclose(stream.release()) != 0 || failed || text.size == 0) { // the JSON printer says nothing then
        throw std::bad_alloc();
    }
    // At once: the process may end while the next part is waited for.
    (void)std::fwrite(text.data, 1, text.size, out);
    (void)std::fflush(out);
}

} // namespace

void PrintStatus(std::FILE *out, Options::Format format) noexcept
{
    try {
        PrintWhole(out, format);
    } catch (const std::exception &problem) {
        (void)std::fprintf(stderr, "corvaned: the status cannot be printed: %s\n", problem.what());
    }
}
