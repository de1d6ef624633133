// SPDX-License-Identifier: Apache-2.0
#include "tests/vcam/framechannel/ActorProcess.h"

#include <QCoreApplication>

namespace lumivora::test {

ActorProcess::ActorProcess(const QStringList &arguments)
{
    _process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    _process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/framechannel_actor"),
                   arguments);
    _process.waitForStarted(-1);
}

ActorProcess::~ActorProcess()
{
    kill();
}

QByteArray ActorProcess::readLine()
{
    while (!_process.canReadLine() && _process.waitForReadyRead(-1)) {
    }
    return _process.readLine().trimmed();
}

void ActorProcess::go()
{
    _process.write("go\n");
    _process.waitForBytesWritten(-1);
}

void ActorProcess::kill()
{
    _process.kill();
    _process.waitForFinished(-1);
}

} // namespace lumivora::test
