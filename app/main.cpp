// SPDX-License-Identifier: Apache-2.0
// Entry of the tray application.
#include "app/App.h"
#include "app/TerminationSignals.h"

#include <QTimer>

#include <chrono>

int main(int argc, char **argv)
{
    App app(argc, argv);
    if (app.isQuitting()) {
        return 0;
    }
    if (!app.isLocked()) {
        app.showMessage(App::tr("The application is already running.\nyou are allowed to run only "
                                "one instance of the application."),
                        App::tr("Ok"), QString(), QString());
        return 1;
    }
    const lumivora::TerminationSignals signalWatch([&app] { app.shutdown(); });
    QTimer::singleShot(std::chrono::milliseconds(300), &app, &App::showMainWindow);
    return App::exec();
}
