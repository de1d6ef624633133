// SPDX-License-Identifier: Apache-2.0
// What the window may ask of the application.
#pragma once

class CameraGrabber;

namespace lumivora {

/** The application as its window sees it, so that the window need not know how it is built.
 *  @thread thread-bound: the interface thread */
class ApplicationInterface
{
public:
    virtual ~ApplicationInterface() = default;

    [[nodiscard]] virtual bool isDarkTheme() const = 0;

    /** The application's own grabber: previews the virtual camera like any client. Null before the
     *  devices have been started. */
    [[nodiscard]] virtual CameraGrabber *cameraGrabber() const = 0;

    /** Whether frames of the physical camera are on their way to the virtual one. */
    [[nodiscard]] virtual bool isCameraRunning() const = 0;

    /** Whether any program has the virtual camera open. */
    [[nodiscard]] virtual bool areClientsConnected() const = 0;

    /** Ends the application from the event loop, so that the caller may be deleted by it. */
    virtual void requestShutdown() = 0;

protected:
    ApplicationInterface() = default;
    ApplicationInterface(const ApplicationInterface &) = default;
    ApplicationInterface &operator=(const ApplicationInterface &) = default;
};

} // namespace lumivora
