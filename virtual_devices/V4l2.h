// SPDX-License-Identifier: Apache-2.0
// The calls to Video4Linux devices that the loopback output makes, for tests to replace.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace lumivora {

/** The system's calls, with its results and errno. @thread thread-safe */
class V4l2
{
public:
    V4l2() = default;
    virtual ~V4l2() = default;

    V4l2(const V4l2 &) = delete;
    V4l2 &operator=(const V4l2 &) = delete;

    /** Paths of the video devices that call themselves so. Opens none: that would wake cameras. */
    [[nodiscard]] virtual std::vector<std::string> devicesNamed(const std::string &name);
    /** Read-write, non-blocking. */
    [[nodiscard]] virtual int open(const std::string &path);
    virtual void close(int device);
    [[nodiscard]] virtual int control(int device, unsigned long request, void *argument);
    [[nodiscard]] virtual ssize_t write(int device, std::span<const std::uint8_t> bytes);
    /** Number of other processes, of those that this user may look at, that have the device open.
     */
    [[nodiscard]] virtual int otherOpeners(const std::string &path);
};

} // namespace lumivora
