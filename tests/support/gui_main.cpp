// SPDX-License-Identifier: Apache-2.0
// Entry of the GoogleTest executables that make an application object of their own: with windows
// that no display needs, and profiles that are not the person's who runs them.
#include <QStandardPaths>
#include <QtEnvironmentVariables>

#include <gmock/gmock.h>

int main(int argc, char **argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QStandardPaths::setTestModeEnabled(true);
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
