// SPDX-License-Identifier: Apache-2.0
// A mutex that processes of one user share by name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace lumivora {

/** A named mutex that survives the death of a process holding it.
 *
 *  Windows: a named mutex of the session's namespace. Linux: a robust, process-shared mutex in a
 *  file of that name (see SharedSection).
 *
 *  @thread thread-safe
 */
class SharedMutex
{
public:
    struct Opened
    {
        std::unique_ptr<SharedMutex> mutex = nullptr; // null on failure
        std::uint32_t errorCode = 0;                  // the system's
    };

    /** Opens the mutex, or makes it, free, when there is none. */
    [[nodiscard]] static Opened openOrCreate(const std::string &name);

    ~SharedMutex();

    SharedMutex(const SharedMutex &) = delete;
    SharedMutex &operator=(const SharedMutex &) = delete;

    /** Waits for the mutex, however long that takes.
     *  @return false when it is unusable: it is not held then */
    [[nodiscard]] bool lock();
    void unlock();

private:
    SharedMutex() = default;

    struct Handle;
    std::unique_ptr<Handle> _handle;
};

} // namespace lumivora
