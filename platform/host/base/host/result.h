// Text for results of the platform's functions.
#pragma once

#include <cstddef>

namespace host {

// A negative result, which is a negated errno, as text: "ENOTCONN, not connected" for -107. Other numbers are printed
// as they are. Allocates no memory, so that it can report running out of it.
class ResultText {
public:
    explicit ResultText(int result) noexcept;
    const char* text() const noexcept { return text_; }

private:
    static constexpr std::size_t most = 96; // the C library's longest name and description have 64 characters
    char text_[most];
};

} // namespace host
