// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/ServiceLock.h"
#include "tests/support/TemporaryRuntime.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>

namespace lumivora {

namespace {

class ServiceLockTest : public ::testing::Test
{
protected:
    test::TemporaryRuntime runtime;
};

} // namespace

TEST_F(ServiceLockTest, isRunning_nobodyHasTheLock_saysNo)
{
    EXPECT_FALSE(isVirtualDevicesServiceRunning());
}

TEST_F(ServiceLockTest, isRunning_lockHeld_saysYesUntilItIsReleased)
{
    {
        ServiceLock lock;
        ASSERT_TRUE(lock.acquire());
        EXPECT_TRUE(isVirtualDevicesServiceRunning());
        EXPECT_TRUE(isVirtualDevicesServiceRunning()) << "asking took the lock away";
    }
    EXPECT_FALSE(isVirtualDevicesServiceRunning());
}

TEST_F(ServiceLockTest, acquire_lockHeld_fails)
{
    ServiceLock first;
    ServiceLock second;
    ASSERT_TRUE(first.acquire());
    EXPECT_FALSE(second.acquire());
}

TEST_F(ServiceLockTest, acquire_holderWasKilled_succeeds)
{
    std::array<int, 2> ready{};
    ASSERT_EQ(pipe(ready.data()), 0);
    const pid_t holder = fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        ServiceLock lock;
        const char held = lock.acquire() ? 'y' : 'n';
        (void)!write(ready[1], &held, 1);
        pause();
        _exit(0);
    }
    char held = 0;
    ASSERT_EQ(read(ready[0], &held, 1), 1);
    EXPECT_EQ(held, 'y');
    ServiceLock lock;
    EXPECT_FALSE(lock.acquire());

    kill(holder, SIGKILL);
    ASSERT_EQ(waitpid(holder, nullptr, 0), holder);
    EXPECT_FALSE(isVirtualDevicesServiceRunning());
    EXPECT_TRUE(lock.acquire());
    close(ready[0]);
    close(ready[1]);
}

TEST_F(ServiceLockTest, acquire_runtimeDirectoryIsUnusable_fails)
{
    const std::filesystem::path folder(runtime.path().toStdString());
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::create_directory_symlink(folder / "elsewhere", folder / "lumivora-control");
    ServiceLock lock;
    EXPECT_FALSE(lock.acquire());
    EXPECT_FALSE(isVirtualDevicesServiceRunning());
}

} // namespace lumivora
