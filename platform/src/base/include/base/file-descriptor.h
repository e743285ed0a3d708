// A file descriptor that closes itself.
#pragma once

#include <unistd.h>
#include <utility>

namespace host::io {

class FileDescriptor {
public:
    explicit FileDescriptor(int number = -1) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() { reset(); }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    int release() { return std::exchange(number_, -1); } // the caller owns it from now on
    void reset() {
        if (number_ >= 0) close(std::exchange(number_, -1));
    }

private:
    int number_;
};

} // namespace host::io
