// SPDX-License-Identifier: Apache-2.0
// The number of clients that have the virtual camera open.
#pragma once

#include <cstdint>
#include <memory>

namespace lumivora {

/** The client counter shared with the virtual camera, guarded by a mutex shared with it.
 *
 *  The virtual camera's side counts; the application only reads.
 *
 *  @thread reentrant
 */
class InstanceCounter
{
public:
    InstanceCounter();
    ~InstanceCounter();

    InstanceCounter(const InstanceCounter &) = delete;
    InstanceCounter &operator=(const InstanceCounter &) = delete;

    /** Opens the counter, or creates it at 0; an existing one keeps its value. On failure the
     *  reason and the system's error code go to the standard error stream. Called once. */
    [[nodiscard]] bool open();

    /** Reads the count under the shared mutex.
     *  @return false when the counter was not opened */
    [[nodiscard]] bool read(std::uint32_t &count) const;

    /** Stores the count under the shared mutex: the virtual camera's side only.
     *  @return false when the counter was not opened */
    bool write(std::uint32_t count);

private:
    struct Objects;
    std::unique_ptr<Objects> _objects;
};

} // namespace lumivora
