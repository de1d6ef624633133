// SPDX-License-Identifier: Apache-2.0
// Offers the virtual camera "Lumivora Control" to the programs of one user.
#include "virtual_devices/Service.h"
#include "virtual_devices/ServiceLock.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>

#include <atomic>
#include <csignal>

namespace {

Q_LOGGING_CATEGORY(lcMain, "lumivora.devices.service")

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

void stopAtSignals()
{
    struct sigaction action{};
    action.sa_handler = [](int) {
        stopRequested = true;
    };
    for (const int signal : {SIGTERM, SIGINT}) {
        sigaction(signal, &action, nullptr);
    }
    // The session that started us may end first; logging must not end us.
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumivora-virtual-devices"));
    QCoreApplication::setApplicationVersion(QStringLiteral(LUMIVORA_VERSION));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Offers the virtual camera \"Lumivora Control\" to this user's programs: a "
                       "PipeWire node and, where there is one, a v4l2loopback device of that "
                       "label. Lumivora Control starts it when it needs it."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(application);

    lumivora::ServiceLock lock;
    if (!lock.acquire()) {
        if (lumivora::isVirtualDevicesServiceRunning()) {
            qCDebug(lcMain) << "the service runs already";
            return 0; // what was wanted is there
        }
        qCWarning(lcMain) << "the runtime directory cannot be used";
        return 1;
    }
    stopAtSignals();
    lumivora::Service service;
    if (!service.start()) {
        return 1;
    }
    service.run(stopRequested);
    return 0;
}
