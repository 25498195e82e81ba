/**
 * @file bounded_text.h
 * @brief Texts that may lack their terminator, or be missing, made fit for a log line. C++ only; no state, any thread.
 */
#ifndef BOUNDED_TEXT_H
#define BOUNDED_TEXT_H

#include <array>
#include <cstddef>
#include <cstring>

/** A terminated copy. Serial numbers and names use their whole field when they are that long; nobody must read past it.
 */
template <size_t Size>
class BoundedText {
public:
    /**
     * @param[in] text    Null counts as empty.
     * @param[in] length  Bytes that may be read, if fewer than the field's.
     */
    explicit BoundedText(const char *text, size_t length = Size) noexcept
    {
        if (text != nullptr) {
            std::memcpy(text_.data(), text, strnlen(text, length < Size ? length : Size));
        }
    }
    [[nodiscard]] const char *Get() const noexcept { return text_.data(); }
    [[nodiscard]] char *Data() noexcept { return text_.data(); }

private:
    std::array<char, Size + 1> text_{};
};

/** The text of an error number, in memory of its own: strerror() belongs to all threads. */
class ErrorText {
public:
    explicit ErrorText(int error) noexcept : text_(strerror_r(error, buffer_.data(), buffer_.size())) {}
    [[nodiscard]] const char *Get() const noexcept { return text_; }

private:
    std::array<char, 128> buffer_{};
    const char *text_;
};

/** @return @p text, or what stands for a missing one in a log line. */
inline const char *TextOrNull(const char *text) noexcept
{
    return text != nullptr ? text : "(null)";
}

#endif
