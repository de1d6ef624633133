// SPDX-License-Identifier: Apache-2.0
// How the application ends when the system tells it to.
#include "tests/app/AppProcess.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <csignal>

namespace {

using lumivora::test::AppProcess;

class TerminationTest : public ::testing::TestWithParam<int>
{
protected:
    [[nodiscard]] std::unique_ptr<AppProcess> launch(int startDelayMs) const
    {
        return std::make_unique<AppProcess>(QCoreApplication::applicationDirPath() +
                                                QStringLiteral("/app_instance"),
                                            folder.path(), startDelayMs);
    }

    static void send(const AppProcess &process, int number)
    {
        ASSERT_EQ(::kill(static_cast<pid_t>(process.id()), number), 0);
    }

    QTemporaryDir folder;
};

TEST_P(TerminationTest, signal_whileRunning_stopsTheDevicesOnceAndReturnsZero)
{
    const auto process = launch(0);
    ASSERT_EQ(process->readLine(), "running");
    send(*process, GetParam());
    EXPECT_EQ(process->readLine(), "stops 1, alive 0");
    EXPECT_EQ(process->waitForExit(), 0);
}

TEST_P(TerminationTest, signal_duringTheStartDelay_returnsZero)
{
    const auto process = launch(3'600'000);
    ASSERT_EQ(process->readLine(), "running");
    send(*process, GetParam());
    EXPECT_EQ(process->readLine(), "stops 0, alive 0");
    EXPECT_EQ(process->waitForExit(), 0);
}

TEST_P(TerminationTest, signal_sentTwice_stopsTheDevicesOnce)
{
    const auto process = launch(0);
    ASSERT_EQ(process->readLine(), "running");
    send(*process, GetParam());
    send(*process, GetParam());
    EXPECT_EQ(process->readLine(), "stops 1, alive 0");
    EXPECT_EQ(process->waitForExit(), 0);
}

INSTANTIATE_TEST_SUITE_P(EachSignal, TerminationTest, ::testing::Values(SIGTERM, SIGINT, SIGHUP));

} // namespace
