// SPDX-License-Identifier: Apache-2.0
// The counter's and the mutex's files: damage, and what the person reads when they cannot be had.

#include "tests/vcam/framechannel/RawSection.h"
#include "vcam/framechannel/InstanceCounter.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/resource.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace lumivora::test {

namespace {

namespace fs = std::filesystem;

class CounterFileTest : public ::testing::Test
{
protected:
    [[nodiscard]] fs::path folder() const { return _runtime.path() + "/lumivora-control"; }
    [[nodiscard]] fs::path section() const { return folder() / "GlobalLumivoraInstanceCounterSM"; }
    [[nodiscard]] fs::path mutex() const { return folder() / "GlobalLumivoraInstanceCounterMux"; }

    void makeFolder() const
    {
        fs::create_directory(folder());
        fs::permissions(folder(), fs::perms::owner_all);
    }

    const PrivateRuntime _runtime;
    InstanceCounter _counter;
    std::uint32_t _count = 99;
};

} // namespace

TEST_F(CounterFileTest, open_files_areTheUsersAloneAndStay)
{
    {
        InstanceCounter counter;
        ASSERT_TRUE(counter.open());
        ASSERT_TRUE(counter.write(5));
    }
    EXPECT_EQ(fs::file_size(section()), 4U);
    EXPECT_EQ(fs::file_size(mutex()), sizeof(pthread_mutex_t));
    for (const fs::path &file : {section(), mutex()}) {
        EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    }
    ASSERT_TRUE(_counter.open());
    ASSERT_TRUE(_counter.read(_count));
    EXPECT_EQ(_count, 5U);
}

TEST_F(CounterFileTest, open_filesOfWrongSize_areReplaced)
{
    makeFolder();
    for (const std::size_t bytes : {0U, 3U, 5U, 4096U}) {
        const std::string content(bytes, 'x');
        std::ofstream(section()) << content;
        std::ofstream(mutex()) << content;
        InstanceCounter counter;
        ASSERT_TRUE(counter.open()) << bytes;
        ASSERT_TRUE(counter.read(_count));
        EXPECT_EQ(_count, 0U);
        EXPECT_EQ(fs::file_size(section()), 4U);
        EXPECT_EQ(fs::file_size(mutex()), sizeof(pthread_mutex_t));
    }
}

TEST_F(CounterFileTest, open_noCounterPossible_tellsTheReason)
{
    makeFolder();
    fs::create_directory(section());
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(_counter.open());
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Could not create file mapping object: " + std::to_string(EISDIR) + "\n");
    EXPECT_FALSE(_counter.read(_count));
}

TEST_F(CounterFileTest, open_noMutexPossible_tellsTheReason)
{
    makeFolder();
    fs::create_directory(mutex());
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(_counter.open());
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Could not create mutex: " + std::to_string(EISDIR) + "\n");
    EXPECT_FALSE(_counter.read(_count)) << "without a mutex there is no count";
}

TEST_F(CounterFileTest, open_noAddressSpace_tellsTheReason)
{
    struct rlimit former = {};
    ::getrlimit(RLIMIT_AS, &former);
    struct rlimit none = former;
    none.rlim_cur = 1;
    ::testing::internal::CaptureStderr();
    ::setrlimit(RLIMIT_AS, &none);
    const bool opened = _counter.open();
    ::setrlimit(RLIMIT_AS, &former);
    EXPECT_FALSE(opened);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Could not map view of file: " + std::to_string(ENOMEM) + "\n");
    EXPECT_FALSE(_counter.read(_count));
    EXPECT_TRUE(fs::is_empty(folder()));
}

TEST_F(CounterFileTest, open_folderNotTrusted_tellsTheReason)
{
    makeFolder();
    fs::permissions(folder(), fs::perms::all);
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(_counter.open());
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Could not create file mapping object: " + std::to_string(EACCES) + "\n");
}

} // namespace lumivora::test
