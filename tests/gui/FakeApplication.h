// SPDX-License-Identifier: Apache-2.0
// The application as a test wants the window to see it.
#pragma once

#include "app/core/ApplicationInterface.h"
#include "tests/vcam/FakeGrabber.h"

namespace lumivora::test {

struct FakeApplication : ApplicationInterface
{
    std::shared_ptr<FakeCameras> cameras = std::make_shared<FakeCameras>();
    FakeGrabber grabber{cameras};
    bool hasGrabber = true;
    bool dark = false;
    bool running = false;
    bool clients = false;
    int shutdowns = 0;

    [[nodiscard]] bool isDarkTheme() const override { return dark; }
    [[nodiscard]] CameraGrabber *cameraGrabber() const override
    {
        return hasGrabber ? const_cast<FakeGrabber *>(&grabber) : nullptr;
    }
    [[nodiscard]] bool isCameraRunning() const override { return running; }
    [[nodiscard]] bool areClientsConnected() const override { return clients; }
    void requestShutdown() override { ++shutdowns; }
};

} // namespace lumivora::test
