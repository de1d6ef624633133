// SPDX-License-Identifier: Apache-2.0
// Another process that takes part in a test.
#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>

namespace lumivora::test {

/** Runs framechannel_actor; see Actor.cpp for what it can be told. Killed when the object goes. */
class ActorProcess
{
public:
    explicit ActorProcess(const QStringList &arguments);
    ~ActorProcess();

    ActorProcess(const ActorProcess &) = delete;
    ActorProcess &operator=(const ActorProcess &) = delete;

    /** The next line it prints, without the line end; empty when it ended instead. */
    QByteArray readLine();
    /** Tells it to go on. */
    void go();
    /** Ends it on the spot (SIGKILL) and waits until it is gone. */
    void kill();

private:
    QProcess _process;
};

} // namespace lumivora::test
