// SPDX-License-Identifier: Apache-2.0
#include "app/TerminationSignals.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcSignals, "lumivora.app")

constexpr std::array kSignals{SIGTERM, SIGINT, SIGHUP};

int writeEnd = -1; // of the pipe; a signal handler can reach nothing but globals

extern "C" void onTerminationSignal(int /*number*/)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(writeEnd, &byte, 1);
    errno = saved;
}

} // namespace

struct TerminationSignals::Opaque
{
    int readEnd = -1;
    std::unique_ptr<QSocketNotifier> notifier;
    std::array<struct sigaction, kSignals.size()> previous{};
};

TerminationSignals::TerminationSignals(std::function<void()> terminate)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        qCWarning(lcSignals) << "Unable to watch for termination signals:" << errno;
        return;
    }
    _opaque = std::make_unique<Opaque>();
    _opaque->readEnd = ends[0];
    writeEnd = ends[1];
    _opaque->notifier = std::make_unique<QSocketNotifier>(ends[0], QSocketNotifier::Read);
    QObject::connect(_opaque->notifier.get(), &QSocketNotifier::activated, _opaque->notifier.get(),
                     [readEnd = ends[0], terminate = std::move(terminate)] {
                         char byte = 0;
                         while (read(readEnd, &byte, 1) > 0) {
                         }
                         terminate();
                     });
    struct sigaction action{};
    action.sa_handler = &onTerminationSignal;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], &action, &_opaque->previous[i]);
    }
}

TerminationSignals::~TerminationSignals()
{
    if (!_opaque) {
        return;
    }
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], &_opaque->previous[i], nullptr);
    }
    _opaque->notifier.reset();
    close(_opaque->readEnd);
    close(writeEnd);
    writeEnd = -1;
}

} // namespace lumivora
