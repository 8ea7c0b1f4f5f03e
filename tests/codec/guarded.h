// A buffer between two margins of marked bytes: what is written outside of it, and what inside was
// left alone, can be told afterwards.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

constexpr char GuardMark = '\xA5';
constexpr size_t GuardMargin = 32;

struct Guarded {
    size_t Size;
    std::string Bytes;

    explicit Guarded(size_t size) : Size(size), Bytes(size + 2 * GuardMargin, GuardMark) {}

    // Begins with a text and its terminator, which must fit.
    Guarded(size_t size, const std::string& content) : Guarded(size)
    {
        std::copy_n(content.c_str(), content.size() + 1, Data());
    }

    char* Data()
    {
        return Bytes.data() + GuardMargin;
    }

    // The content up to its first zero.
    std::string Text() const
    {
        return std::string(Bytes, GuardMargin, Size).c_str();
    }

    std::string Head(size_t count) const
    {
        return Bytes.substr(GuardMargin, count);
    }

    // Both margins, and everything from an offset in the buffer on, are as they were.
    bool UntouchedFrom(size_t offset) const
    {
        const std::string before(GuardMargin, GuardMark);
        const std::string behind(Size - offset + GuardMargin, GuardMark);
        return Bytes.compare(0, GuardMargin, before) == 0 &&
               Bytes.compare(GuardMargin + offset, std::string::npos, behind) == 0;
    }

    bool MarginsWhole() const
    {
        return UntouchedFrom(Size);
    }
};
