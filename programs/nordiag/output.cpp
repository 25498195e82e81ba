#include "output.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace {

/** A pipe that says it can be written to takes this much without blocking. */
constexpr size_t kWriteSize = 4096;
/** What is written is dropped in pieces of this size. */
constexpr size_t kChunkSize = 65536;
constexpr char kInPlace = '?';

} // namespace

char ControlFilter::Pass(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80) {
        left_ = 0;
        return (value >= ' ' && value != 0x7f) || byte == '\n' || byte == '\t' ? byte : kInPlace;
    }
    if (value < 0xc0) {
        const bool fits = left_ > 0 && value >= lowest_;
        left_ = fits ? left_ - 1 : 0;
        lowest_ = 0x80;
        return fits ? byte : kInPlace;
    }
    // From RFC 3629. U+0080 to U+009F, which start with C2, are control characters; E0 and F0 could hide them.
    left_ = value < 0xc2 || value > 0xf4 ? 0 : value < 0xe0 ? 1 : value < 0xf0 ? 2 : 3;
    lowest_ = value == 0xc2 || value == 0xe0 ? 0xa0 : value == 0xf0 ? 0x90 : 0x80;
    return left_ > 0 ? byte : kInPlace;
}

std::string OnePlainLine(std::string_view text)
{
    ControlFilter filter;
    std::string plain;
    for (const char byte : text) {
        const char passed = filter.Pass(byte);
        plain += passed == '\n' || passed == '\t' ? kInPlace : passed;
    }
    return plain;
}

OutputQueue::OutputQueue(int descriptor) : descriptor_(descriptor), filters_(isatty(descriptor) != 0) {}

void OutputQueue::Add(std::string_view text)
{
    if (text.empty()) {
        return;
    }
    if (chunks_.empty() || chunks_.back().size() + text.size() > kChunkSize) {
        chunks_.emplace_back();
    }
    std::string &chunk = chunks_.back();
    const size_t before = chunk.size();
    chunk += text;
    if (filters_) {
        for (size_t at = before; at < chunk.size(); at++) {
            chunk[at] = filter_.Pass(chunk[at]);
        }
    }
    size_ += text.size();
}

bool OutputQueue::WriteSome()
{
    const std::string &chunk = chunks_.front();
    const ssize_t count = write(descriptor_, chunk.data() + written_, std::min(chunk.size() - written_, kWriteSize));
    if (count < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    written_ += static_cast<size_t>(count);
    size_ -= static_cast<size_t>(count);
    if (written_ == chunk.size()) {
        chunks_.pop_front();
        written_ = 0;
    }
    return true;
}
