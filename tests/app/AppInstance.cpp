// SPDX-License-Identifier: Apache-2.0
// The application without devices, as a process that tests start beside each other and signal.
// Arguments: folder of the settings, milliseconds until it starts its parts.
// Prints "running" from its event loop, or the message it was stopped with; at its end how often
// the devices were stopped.
#include "tests/app/AppFixture.h"

#include <cstdio>

using lumivora::test::FakeParts;

namespace {

void tell(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromLocal8Bit(argv[1]));
    FakeParts fakes;
    App::Parts parts = lumivora::test::appPartsWith(fakes);
    parts.startDelay = std::chrono::milliseconds(std::atoi(argv[2]));
    parts.updateDelay = std::chrono::milliseconds(0);
    int result = 0;
    {
        App app(argc, argv, std::move(parts));
        QString message;
        if (app.isLocked()) {
            QTimer watch;
            QObject::connect(&watch, &QTimer::timeout, &app, [&] {
                // Either stage: before the parts are started, or with the window up.
                if (fakes.vcamStarts == 0 || (app.mainWindow() && app.mainWindow()->isVisible())) {
                    watch.stop();
                    tell(QStringLiteral("running"));
                }
            });
            watch.start(argv[2] == std::string_view("0") ? 50 : 0);
            result = app.run();
        } else {
            lumivora::test::clickNextBox(QStringLiteral("Ok"), &message);
            result = app.run();
            tell(message);
        }
    }
    tell(QStringLiteral("stops %1, alive %2").arg(fakes.vcamStops).arg(fakes.vcamsAlive));
    return result;
}
