// SPDX-License-Identifier: Apache-2.0
// Owner of one open file descriptor (Linux).
#pragma once

#include <unistd.h>

#include <utility>

namespace lumivora {

/** Closes its descriptor when it goes; -1 is none. */
class FileDescriptor
{
public:
    explicit FileDescriptor(int descriptor = -1) : _descriptor(descriptor) {}
    ~FileDescriptor() { reset(); }

    FileDescriptor(FileDescriptor &&other) noexcept
        : _descriptor(std::exchange(other._descriptor, -1))
    {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        std::swap(_descriptor, other._descriptor);
        return *this;
    }

    explicit operator bool() const { return _descriptor >= 0; }
    [[nodiscard]] int get() const { return _descriptor; }

    void reset()
    {
        if (_descriptor >= 0) {
            ::close(std::exchange(_descriptor, -1));
        }
    }

private:
    int _descriptor;
};

} // namespace lumivora
