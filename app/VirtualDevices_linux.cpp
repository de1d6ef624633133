// SPDX-License-Identifier: Apache-2.0
#include "app/VirtualDevices.h"

#include "vcam/capture/CameraGrabber.h"
#include "virtual_devices/ServiceLock.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <chrono>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcDevices, "lumivora.app")

using namespace std::chrono_literals;

constexpr auto kCheckPeriod = 2s;
constexpr auto kStartupAllowance = 10s;
const QLatin1StringView kService("lumivora-virtual-devices");

QElapsedTimer sinceFirstStart;

/** Beside the application, or where packages put what users do not call themselves. */
QString servicePath()
{
    const QString folder = QCoreApplication::applicationDirPath();
    const QString beside = folder + u'/' + kService;
    return QFileInfo::exists(beside)
               ? beside
               : folder + QStringLiteral("/../libexec/lumivora-control/") + kService;
}

void startWhenMissing()
{
    if (isVirtualDevicesServiceRunning()) {
        return;
    }
    if (!sinceFirstStart.isValid()) {
        sinceFirstStart.start();
    }
    // Detached: clients keep the virtual camera when the application ends. Should another copy be
    // starting at this moment, the service's own lock lets one of them go on.
    if (QProcess::startDetached(servicePath(), {})) {
        qCInfo(lcDevices).noquote() << "Started" << servicePath();
    } else {
        qCWarning(lcDevices).noquote()
            << "Unable to start" << servicePath() << "- there will be no virtual camera";
    }
}

} // namespace

void keepVirtualDevicesRunning(QObject *context)
{
    sinceFirstStart.invalidate();
    startWhenMissing();
    auto *timer = new QTimer(context);
    QObject::connect(timer, &QTimer::timeout, context, &startWhenMissing);
    timer->start(kCheckPeriod);
}

bool areVirtualDevicesStarting()
{
    if (!sinceFirstStart.isValid() || sinceFirstStart.durationElapsed() > kStartupAllowance) {
        return false;
    }
    QList<CameraDevice> devices;
    CameraGrabber().listDevices(devices);
    return std::ranges::none_of(devices, [](const CameraDevice &device) {
        return device.name.contains(QLatin1StringView("Lumivora Control"));
    });
}

} // namespace lumivora
