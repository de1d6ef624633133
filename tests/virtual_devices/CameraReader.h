// SPDX-License-Identifier: Apache-2.0
// A client of a PipeWire camera, as any program is one.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace lumivora::test {

/** Receives a camera's frames through GStreamer's pipewiresrc while it lives.
 *  @thread thread-bound */
class CameraReader
{
public:
    struct Frame
    {
        QByteArray bytes;
        std::int64_t timeNs = 0; // when the camera says it was taken, CLOCK_MONOTONIC
    };

    /** @param nodeName  of the camera
     *  @param caps      what to ask for, such as "video/x-raw,format=BGRx" */
    CameraReader(const QString &nodeName, const QString &caps);
    ~CameraReader();

    CameraReader(const CameraReader &) = delete;
    CameraReader &operator=(const CameraReader &) = delete;

    /** The next frame; none when it does not come in time. */
    [[nodiscard]] std::optional<Frame> next(std::chrono::milliseconds patience);
    /** Frames are taken until one satisfies; false when none does in time. */
    template <typename Condition>
    [[nodiscard]] bool waitFor(const Condition &condition, std::chrono::milliseconds patience)
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (std::chrono::steady_clock::now() < deadline) {
            const auto frame = next(std::chrono::milliseconds(200));
            if (frame && condition(frame->bytes)) {
                return true;
            }
        }
        return false;
    }

private:
    struct Pipeline;
    std::unique_ptr<Pipeline> _pipeline;
};

/** A camera as programs find it in GStreamer's device list. */
struct ListedCamera
{
    QString name;
    QString nodeName;
    QString role;
    QStringList caps; // one structure each, in order
};

/** Every camera that is listed. */
[[nodiscard]] QList<ListedCamera> listCameras();

} // namespace lumivora::test
