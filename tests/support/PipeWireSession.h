// SPDX-License-Identifier: Apache-2.0
// A private PipeWire session, so that tests see no device of the machine they run on.
#pragma once

#include "tests/support/TemporaryRuntime.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QHash>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QThread>

#include <chrono>

namespace lumivora::test {

/** How long tests wait for something that will happen; only a failure takes this long. */
inline constexpr std::chrono::milliseconds kPatience{10000};

/** Runs D-Bus, PipeWire and WirePlumber in a runtime directory of their own while it lives, and
 *  points this process and its children at them. WirePlumber only sets policy and looks for no
 *  hardware, so every node comes from the test.
 *
 *  Needs a QCoreApplication.
 *
 *  @thread thread-bound
 */
class PipeWireSession
{
public:
    PipeWireSession();
    ~PipeWireSession();

    PipeWireSession(const PipeWireSession &) = delete;
    PipeWireSession &operator=(const PipeWireSession &) = delete;

    /** Whether clients can connect and get linked; assert it after construction. */
    [[nodiscard]] bool isRunning() const { return _running; }

    /** Kills PipeWire (signal 9); WirePlumber ends with it, D-Bus stays. */
    void killServer();
    /** Starts PipeWire and WirePlumber and waits until they serve. */
    [[nodiscard]] bool startServer();
    /** Lets PipeWire hang (signal 19) and go on (signal 18). */
    void suspendServer();
    void resumeServer();

    [[nodiscard]] QString runtimePath() const { return _runtime.path(); }

    /** The node.name of every node, in the order they were made. */
    [[nodiscard]] static QStringList nodeNames();
    /** Waits until a node of that name is there; false when it does not come. */
    [[nodiscard]] static bool waitForNode(const QString &name);
    /** Waits until there is no node of that name; false when it stays. */
    [[nodiscard]] static bool waitForNodeGone(const QString &name);

private:
    void setVariable(const char *name, const QByteArray &value);

    QHash<QByteArray, QByteArray> _previous; // a null value: was not set
    TemporaryRuntime _runtime;
    QProcess _bus;
    QProcess _server;
    QProcess _policy;
    bool _running = false;
};

/** Starts a program whose output goes to the test's and which ends with the calling thread, however
 *  that ends. @return whether it started */
[[nodiscard]] bool startHelper(QProcess &process, const QString &program,
                               const QStringList &arguments);

/** Ends a program: asks it to, and kills it when it does not. */
void endHelper(QProcess &process);

/** Asks every 10 ms until the condition holds, handling this thread's events meanwhile; false when
 *  it does not hold within the time. */
template <typename Condition>
[[nodiscard]] bool waitUntil(const Condition &condition,
                             std::chrono::milliseconds patience = kPatience)
{
    const QDeadlineTimer deadline(patience);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents();
        QThread::sleep(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace lumivora::test
