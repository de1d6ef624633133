// SPDX-License-Identifier: Apache-2.0
#include "app/TerminationSignals.h"

#include <QMutex>
#include <QMutexLocker>
#include <QObject>

#include <windows.h>

namespace lumivora {

struct TerminationSignals::Opaque
{
    QObject context; // lives on the thread that runs the function
};

namespace {

QMutex currentLock;
QObject *currentContext = nullptr;
std::function<void()> currentTerminate;

/** Runs on a thread of the system's. */
BOOL WINAPI onConsoleControl(DWORD /*event*/) noexcept
{
    const QMutexLocker guard(&currentLock);
    if (currentContext == nullptr) {
        return FALSE;
    }
    QMetaObject::invokeMethod(currentContext, currentTerminate, Qt::QueuedConnection);
    return TRUE;
}

} // namespace

TerminationSignals::TerminationSignals(std::function<void()> terminate)
    : _opaque(std::make_unique<Opaque>())
{
    {
        const QMutexLocker guard(&currentLock);
        currentContext = &_opaque->context;
        currentTerminate = std::move(terminate);
    }
    SetConsoleCtrlHandler(&onConsoleControl, TRUE);
}

TerminationSignals::~TerminationSignals()
{
    SetConsoleCtrlHandler(&onConsoleControl, FALSE);
    const QMutexLocker guard(&currentLock);
    currentContext = nullptr;
    currentTerminate = nullptr;
}

} // namespace lumivora
