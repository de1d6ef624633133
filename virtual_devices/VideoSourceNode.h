// SPDX-License-Identifier: Apache-2.0
// A camera that other programs see: a PipeWire node of class Video/Source.
#pragma once

#include "virtual_devices/PictureFormat.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace lumivora {

/** Offers frames to any number of clients at once, which share each buffer.
 *
 *  The node is its graph's driver: an offered frame is on its way at once. It stays listed for as
 *  long as the object lives; when PipeWire goes away, it tries to come back, for ever. PipeWire's
 *  callbacks run on a thread of the node's own.
 *
 *  @thread thread-safe */
class VideoSourceNode
{
public:
    struct Config
    {
        std::string nodeName;    // constant: programs remember a chosen camera by it
        std::string description; // what a person sees
        /** Best first. Each is listed by itself: browsers ignore ranges and choices. */
        std::vector<PictureFormat> formats;
        int framesPerSecond = 30;
    };

    /** Puts one frame of the given format into the memory.
     *  @return its size in bytes, 0 to send nothing */
    using Fill =
        std::function<std::size_t(const PictureFormat &format, std::span<std::uint8_t> memory)>;
    /** Number of clients that have the camera running. @thread called on the node's thread */
    using ClientsChanged = std::function<void(int clients)>;

    enum class Offer {
        Sent,
        NotStreaming, // nobody looks; the frame was not even converted
        Dropped,      // every buffer is with clients still
    };

    /** @return none when the system refuses a thread or a loop; a missing PipeWire is no failure */
    [[nodiscard]] static std::unique_ptr<VideoSourceNode>
    create(Config config, ClientsChanged clientsChanged = {});
    ~VideoSourceNode();

    VideoSourceNode(const VideoSourceNode &) = delete;
    VideoSourceNode &operator=(const VideoSourceNode &) = delete;

    /** Sends one frame; never waits for clients.
     *  @param fill  called at most once, before offer() returns, on the calling thread */
    Offer offer(const Fill &fill);

    /** Whether a client receives. */
    [[nodiscard]] bool isStreaming() const;
    [[nodiscard]] int clientCount() const;
    /** Frames that found no free buffer. */
    [[nodiscard]] std::uint64_t droppedFrames() const;

private:
    VideoSourceNode();

    class Session;
    std::unique_ptr<Session> _session;
};

} // namespace lumivora
