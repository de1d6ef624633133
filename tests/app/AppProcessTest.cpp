// SPDX-License-Identifier: Apache-2.0
// Two application processes beside each other.
#include "tests/app/AppProcess.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

namespace {

using lumivora::test::AppProcess;

class AppProcessTest : public ::testing::Test
{
protected:
    [[nodiscard]] std::unique_ptr<AppProcess> launch(int startDelayMs = 3'600'000) const
    {
        return std::make_unique<AppProcess>(QCoreApplication::applicationDirPath() +
                                                QStringLiteral("/app_instance"),
                                            folder.path(), startDelayMs);
    }

    static constexpr const char *kAlreadyRunning =
        "The application is already running.<br>you are allowed to run only one instance of the "
        "application.";

    QTemporaryDir folder;
};

TEST_F(AppProcessTest, twoLaunches_atTheSameTime_leaveExactlyOneRunning)
{
    for (int round = 0; round < 3; ++round) {
        const auto first = launch();
        const auto second = launch();
        const QByteArray firstLine = first->readLine();
        const QByteArray secondLine = second->readLine();
        const bool firstRuns = firstLine == "running";
        EXPECT_EQ(firstRuns ? secondLine : firstLine, kAlreadyRunning);
        EXPECT_EQ(firstRuns ? firstLine : secondLine, "running");
        AppProcess &loser = firstRuns ? *second : *first;
        EXPECT_EQ(loser.readLine(), "stops 0, alive 0");
        EXPECT_EQ(loser.waitForExit(), 1);
    }
}

TEST_F(AppProcessTest, lock_ofAKilledApplication_doesNotBlockTheNext)
{
    const auto first = launch();
    ASSERT_EQ(first->readLine(), "running");
    first->kill();
    const auto second = launch();
    EXPECT_EQ(second->readLine(), "running");
}

} // namespace
