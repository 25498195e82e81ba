// The scanning half of the bounded functions. The format is cut into fields and each field is scanned by one call of
// the C library, so that the scan can stop exactly where a text does not fit and nothing behind it is stored.

#include "bounded/bounded.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kMaxFields = 32;
constexpr size_t kMaxFormat = 1024;
constexpr size_t kMaxTarget = INT32_MAX - 1;
/** Room for one piece of the format with a rewritten width and a "%n" behind it. */
using Piece = std::array<char, kMaxFormat + 64>;

enum class FieldKind {
    Number,   ///< stored by the C library itself, including %p
    Position, ///< %n
    Word,     ///< %s: skips white space first
    Text,     ///< %[ and %c
    Char,
};

struct Field {
    FieldKind kind;
    const char *prefix; ///< literals, white space and suppressed conversions before the field
    size_t prefixLength;
    const char *conversion; ///< from '%' to the conversion's last character
    size_t conversionLength;
    const char *specifier; ///< behind flags, width and length
    size_t width;          ///< 0: none given
    void *target;
    size_t targetSize;
};

struct Plan {
    std::array<Field, kMaxFields> fields;
    size_t count;
    const char *tail; ///< what follows the last field
};

/** Where the scan reads. For texts @c text moves on with each call; a stream moves by itself. */
struct Source {
    const char *text;
    std::FILE *stream;
    int consumed;
};

/** End of a "%[...]" set, given the '['; null if it is not closed. */
const char *SetEnd(const char *set) noexcept
{
    const char *at = set + 1;
    at += *at == '^' ? 1 : 0;
    // A ']' right at the start belongs to the set.
    at += *at == ']' ? 1 : 0;
    return std::strchr(at, ']');
}

/** Reads one conversion behind '%' into @p field. @return its end, or null for what is not supported. */
const char *ParseConversion(const char *percent, Field &field, bool &suppressed) noexcept
{
    const char *at = percent + 1;
    suppressed = *at == '*';
    at += suppressed ? 1 : 0;
    field.width = 0;
    while (std::isdigit(static_cast<unsigned char>(*at)) != 0) {
        field.width = std::min<size_t>(field.width * 10 + static_cast<size_t>(*at - '0'), kMaxTarget);
        at++;
    }
    const char *lengthStart = at;
    at += std::strspn(at, "hljztLq");
    const bool hasLength = at != lengthStart;
    field.specifier = at;
    const char *last = at;
    switch (*at) {
    case 's':
        field.kind = FieldKind::Word;
        break;
    case 'c':
        field.kind = FieldKind::Char;
        break;
    case '[':
        field.kind = FieldKind::Text;
        last = SetEnd(at);
        break;
    case 'n':
        field.kind = FieldKind::Position;
        break;
    default:
        if (*at == '\0' || std::strchr("diouxXaAeEfFgGp", *at) == nullptr) {
            return nullptr;
        }
        field.kind = FieldKind::Number;
        break;
    }
    // Wide texts, and a %n of another width than int, have no use here.
    if (last == nullptr || (hasLength && field.kind != FieldKind::Number)) {
        return nullptr;
    }
    field.conversion = percent;
    field.conversionLength = static_cast<size_t>(last + 1 - percent);
    return last + 1;
}

/** Takes the field's target, and its size if it has one, from the arguments. */
bool TakeTarget(Field &field, va_list &args) noexcept
{
    field.target = va_arg(args, void *);
    field.targetSize = 0;
    if (field.kind == FieldKind::Word || field.kind == FieldKind::Text || field.kind == FieldKind::Char) {
        field.targetSize = va_arg(args, size_t);
    }
    return field.target != nullptr && field.targetSize <= kMaxTarget;
}

bool MakePlan(const char *format, va_list &args, Plan &plan) noexcept
{
    if (strnlen(format, kMaxFormat) == kMaxFormat) {
        return false;
    }
    plan.count = 0;
    plan.tail = format;
    const char *at = format;
    while ((at = std::strchr(at, '%')) != nullptr) {
        if (at[1] == '%') {
            at += 2;
            continue;
        }
        Field field{};
        bool suppressed = false;
        const char *percent = at;
        at = ParseConversion(percent, field, suppressed);
        if (at == nullptr) {
            return false;
        }
        if (suppressed) {
            continue;
        }
        if (plan.count == kMaxFields || !TakeTarget(field, args)) {
            return false;
        }
        field.prefix = plan.tail;
        field.prefixLength = static_cast<size_t>(percent - plan.tail);
        plan.fields[plan.count++] = field;
        plan.tail = at;
    }
    return true;
}

/**
 * Runs one piece, which ends in "%n". @return what the C library returned; @p length tells the characters consumed,
 * or -1 where the end of the piece was not reached.
 */
int ScanPiece(Source &source, const char *piece, void *target, int &length) noexcept
{
    length = -1;
    int result;
    if (source.stream != nullptr) {
        result = target != nullptr ? std::fscanf(source.stream, piece, target, &length)
                                   : std::fscanf(source.stream, piece, &length);
    } else {
        result = target != nullptr ? std::sscanf(source.text, piece, target, &length)
                                   : std::sscanf(source.text, piece, &length);
    }
    if (length > 0) {
        source.consumed += length;
        source.text += source.stream == nullptr ? length : 0;
    }
    return result;
}

/** Scans what stands before a field. @return 0, or the C library's EOF, or 1 for a mismatch. */
int ScanPrefix(Source &source, const char *prefix, size_t prefixLength, bool skipSpace) noexcept
{
    if (prefixLength == 0 && !skipSpace) {
        return 0;
    }
    Piece piece;
    (void)std::snprintf(piece.data(), piece.size(), "%.*s%s%%n", static_cast<int>(prefixLength), prefix,
                        skipSpace ? " " : "");
    int length = -1;
    const int result = ScanPiece(source, piece.data(), nullptr, length);
    if (length >= 0) {
        return 0;
    }
    return result == EOF ? EOF : 1;
}

enum class Outcome { Stored, Mismatch, End, Overflow };

Outcome OutcomeOf(int result) noexcept
{
    if (result == 1) {
        return Outcome::Stored;
    }
    return result == EOF ? Outcome::End : Outcome::Mismatch;
}

/** Room for one character more than a target takes; on the heap only for large targets. */
class TextBuffer {
public:
    explicit TextBuffer(size_t size) noexcept
    {
        if (size > small_.size()) {
            heap_ = static_cast<char *>(std::malloc(size));
            data_ = heap_;
        }
    }
    ~TextBuffer() { std::free(heap_); }
    TextBuffer(const TextBuffer &) = delete;
    TextBuffer &operator=(const TextBuffer &) = delete;

    /** Null without memory. */
    [[nodiscard]] char *Data() noexcept { return data_; }

private:
    std::array<char, 512> small_;
    char *heap_ = nullptr;
    char *data_ = small_.data();
};

Outcome ScanText(Source &source, const Field &field) noexcept
{
    // One character more than fits is asked for: its presence is the overflow.
    const size_t room = field.targetSize;
    const size_t terminator = field.kind == FieldKind::Char ? 0 : 1;
    const size_t asked = field.kind == FieldKind::Char ? std::max<size_t>(field.width, 1)
                                                       : (field.width != 0 ? field.width : kMaxTarget);
    const size_t limit = std::min(asked, std::max<size_t>(room + 1 - terminator, 1));
    const char *end = field.conversion + field.conversionLength;

    Piece piece;
    (void)std::snprintf(piece.data(), piece.size(), "%%%zu%.*s%%n", limit, static_cast<int>(end - field.specifier),
                        field.specifier);
    TextBuffer text(limit + 1);
    if (text.Data() == nullptr) {
        return Outcome::End;
    }
    int length = -1;
    const Outcome outcome = OutcomeOf(ScanPiece(source, piece.data(), text.Data(), length));
    if (outcome != Outcome::Stored) {
        return outcome;
    }
    auto *target = static_cast<char *>(field.target);
    const auto size = static_cast<size_t>(length);
    if (size + terminator > room) {
        if (room != 0) {
            target[0] = '\0';
        }
        return Outcome::Overflow;
    }
    std::memcpy(target, text.Data(), size);
    if (terminator != 0) {
        target[size] = '\0';
    }
    return Outcome::Stored;
}

Outcome ScanField(Source &source, const Field &field) noexcept
{
    if (field.kind == FieldKind::Position) {
        *static_cast<int *>(field.target) = source.consumed;
        return Outcome::Stored;
    }
    if (field.kind != FieldKind::Number) {
        return ScanText(source, field);
    }
    Piece piece;
    (void)std::snprintf(piece.data(), piece.size(), "%.*s%%n", static_cast<int>(field.conversionLength),
                        field.conversion);
    int length = -1;
    return OutcomeOf(ScanPiece(source, piece.data(), field.target, length));
}

int Scan(Source &source, const Plan &plan) noexcept
{
    int stored = 0;
    for (size_t i = 0; i < plan.count; i++) {
        const Field &field = plan.fields[i];
        const int before = ScanPrefix(source, field.prefix, field.prefixLength, field.kind == FieldKind::Word);
        if (before != 0) {
            return before == EOF && stored == 0 ? EOF : stored;
        }
        const Outcome outcome = ScanField(source, field);
        if (outcome != Outcome::Stored) {
            return outcome == Outcome::End && stored == 0 ? EOF : stored;
        }
        stored += field.kind == FieldKind::Position ? 0 : 1;
    }
    // A stream moves on over what follows the last field; with no field stored an early end still shows.
    const int after = ScanPrefix(source, plan.tail, std::strlen(plan.tail), false);
    return after == EOF && stored == 0 ? EOF : stored;
}

int PlanAndScan(Source source, const char *format, va_list &args) noexcept
{
    Plan plan;
    return MakePlan(format, args, plan) ? Scan(source, plan) : EOF;
}

} // namespace

int sscanf_s(const char *text, const char *format, ...) noexcept
{
    if (text == nullptr || format == nullptr) {
        return EOF;
    }
    va_list args;
    va_start(args, format);
    const int stored = PlanAndScan({text, nullptr, 0}, format, args);
    va_end(args);
    return stored;
}

int fscanf_s(FILE *stream, const char *format, ...) noexcept
{
    if (stream == nullptr || format == nullptr) {
        return EOF;
    }
    va_list args;
    va_start(args, format);
    const int stored = PlanAndScan({nullptr, stream, 0}, format, args);
    va_end(args);
    return stored;
}
