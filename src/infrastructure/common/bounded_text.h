/**
 * @file bounded_text.h
 * @brief A terminated copy of a text field that may lack its terminator. C++ only; no state, any thread.
 */
#ifndef BOUNDED_TEXT_H
#define BOUNDED_TEXT_H

#include <array>
#include <cstddef>
#include <cstring>

/** Serial numbers and names use their whole field when they are that long; nobody must read past it. */
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

#endif
