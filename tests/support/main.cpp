// SPDX-License-Identifier: Apache-2.0
// Entry of every GoogleTest executable: an application object, and profiles of its own so that no
// test touches the settings of the person who runs it.
#include <QCoreApplication>
#include <QStandardPaths>

#include <gmock/gmock.h>

int main(int argc, char **argv)
{
    QStandardPaths::setTestModeEnabled(true);
    const QCoreApplication application(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
