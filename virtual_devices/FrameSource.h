// SPDX-License-Identifier: Apache-2.0
// Where the service's frames come from.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>

namespace lumivora {

/** The camera's picture has one size; frames are B G R A, rows top to bottom without padding. */
inline constexpr int kCameraWidth = 1280;
inline constexpr int kCameraHeight = 720;
inline constexpr std::size_t kCameraStride = std::size_t{kCameraWidth} * 4;
inline constexpr std::size_t kCameraBytes = kCameraStride * kCameraHeight;

/** One producer's frames, for as long as it lives. @thread reentrant */
class FrameSource
{
public:
    FrameSource() = default;
    virtual ~FrameSource() = default;

    FrameSource(const FrameSource &) = delete;
    FrameSource &operator=(const FrameSource &) = delete;

    /** Waits for a frame that copy() has not given yet. @return whether there is one */
    [[nodiscard]] virtual bool wait(std::chrono::milliseconds timeout) = 0;
    /** Copies the latest frame.
     *  @param out  kCameraBytes bytes; undefined content when false is returned */
    [[nodiscard]] virtual bool copy(std::span<std::byte> out) = 0;
    /** False once the producer closed, died or was replaced. */
    [[nodiscard]] virtual bool isAlive() const = 0;
};

/** The frame channel's current producer; none when there is none or its frames have another size.
 */
[[nodiscard]] std::unique_ptr<FrameSource> openFrameChannel();

} // namespace lumivora
