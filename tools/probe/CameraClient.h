// SPDX-License-Identifier: Apache-2.0
// A client of a PipeWire camera, as a video-call program is one.
#pragma once

#include "tools/probe/FrameTally.h"

#include <QImage>
#include <QString>

#include <cstdint>
#include <memory>
#include <mutex>

namespace lumivora::tools {

/** Waits for a camera by its displayed name, opens it with pipewiresrc and counts its frames.
 *
 *  When the camera goes away (its service ends, PipeWire restarts) the client waits for it and
 *  opens it anew; a camera that only pauses is kept open.
 *
 *  @thread lives on the thread that runs the default GLib main loop; tally(), picture() and
 *          the other readers are thread-safe
 */
class CameraClient
{
public:
    /** @param name  part of the displayed name of the camera */
    explicit CameraClient(QString name);
    ~CameraClient();

    CameraClient(const CameraClient &) = delete;
    CameraClient &operator=(const CameraClient &) = delete;

    /** Begins to look for the camera. Called once, after gst_init. */
    void start();
    /** Closes the camera; the figures stay. Idempotent. */
    void stop();

    /** A copy of the figures so far. */
    [[nodiscard]] FrameTally tally() const;
    /** The last live frame; null before one came. */
    [[nodiscard]] QImage picture() const;
    /** Caps of the camera's stream; empty before one runs. */
    [[nodiscard]] QString format() const;
    /** How often the camera was opened and began to stream. */
    [[nodiscard]] int opened() const;
    /** Why the camera was closed the last time; empty when it never was. */
    [[nodiscard]] QString lastError() const;

    /** Microseconds of CLOCK_MONOTONIC, which the stamps count too. */
    [[nodiscard]] static std::uint64_t nowUs();

private:
    struct Gst;

    void look();
    [[nodiscard]] bool holds();
    void open(const QString &serial);
    void close(const QString &why);
    void take();

    QString _name;
    std::unique_ptr<Gst> _gst;

    mutable std::mutex _lock; // guards what follows
    FrameTally _tally;
    QImage _picture;
    QString _format;
    QString _lastError;
    int _opened = 0;
};

} // namespace lumivora::tools
