// SPDX-License-Identifier: Apache-2.0
// Owner of one kernel object's handle (Windows).
#pragma once

#include <windows.h>

#include <utility>

namespace lumivora {

/** Closes its handle when it goes; null is none. */
class KernelObject
{
public:
    explicit KernelObject(HANDLE handle = nullptr) : _handle(handle) {}
    ~KernelObject()
    {
        if (_handle != nullptr) {
            ::CloseHandle(_handle);
        }
    }

    KernelObject(KernelObject &&other) noexcept : _handle(std::exchange(other._handle, nullptr)) {}
    KernelObject &operator=(KernelObject &&other) noexcept
    {
        std::swap(_handle, other._handle);
        return *this;
    }

    explicit operator bool() const { return _handle != nullptr; }
    [[nodiscard]] HANDLE get() const { return _handle; }

private:
    HANDLE _handle;
};

} // namespace lumivora
