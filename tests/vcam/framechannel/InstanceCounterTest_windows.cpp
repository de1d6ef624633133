// SPDX-License-Identifier: Apache-2.0
// What the person reads when the counter's kernel objects cannot be had.

#include "vcam/framechannel/InstanceCounter.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace lumivora::test {

namespace {

constexpr auto kSection = L"GlobalLumivoraInstanceCounterSM";
constexpr auto kMutex = L"GlobalLumivoraInstanceCounterMux";

class CounterObjectTest : public ::testing::Test
{
protected:
    ~CounterObjectTest() override { ::CloseHandle(_obstacle); }

    /** What opening the counter prints; it must fail. */
    std::string failedOpen()
    {
        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(_counter.open());
        std::uint32_t count = 0;
        EXPECT_FALSE(_counter.read(count));
        return ::testing::internal::GetCapturedStderr();
    }

    HANDLE _obstacle = nullptr;
    InstanceCounter _counter;
};

} // namespace

TEST_F(CounterObjectTest, open_sectionsNameTakenByAnEvent_tellsTheReason)
{
    _obstacle = ::CreateEventW(nullptr, TRUE, FALSE, kSection);
    ASSERT_NE(_obstacle, nullptr);
    EXPECT_EQ(failedOpen(), "Could not create file mapping object: " +
                                std::to_string(ERROR_INVALID_HANDLE) + "\n");
}

TEST_F(CounterObjectTest, open_mutexsNameTakenByAnEvent_tellsTheReason)
{
    _obstacle = ::CreateEventW(nullptr, TRUE, FALSE, kMutex);
    ASSERT_NE(_obstacle, nullptr);
    EXPECT_EQ(failedOpen(),
              "Could not create mutex: " + std::to_string(ERROR_INVALID_HANDLE) + "\n");
}

} // namespace lumivora::test
