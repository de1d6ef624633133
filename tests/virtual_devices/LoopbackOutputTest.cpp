// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/LoopbackOutput.h"
#include "tests/support/LogCapture.h"
#include "virtual_devices/FrameSource.h"

#include <gmock/gmock.h>

#include <linux/videodev2.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <vector>

namespace lumivora {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kNewEvent = 0x10E00001; // v4l2loopback from 0.13 on
constexpr std::uint32_t kOldEvent = 0x08000000;
constexpr int kDescriptor = 77;

/** A driver whose answers a test sets. */
class FakeV4l2 : public V4l2
{
public:
    std::vector<std::string> devicesNamed(const std::string &name) override
    {
        EXPECT_EQ(name, "Lumivora Control");
        ++looks;
        return present ? std::vector<std::string>{"/dev/video9"} : std::vector<std::string>{};
    }

    int open(const std::string &path) override
    {
        EXPECT_EQ(path, "/dev/video9");
        EXPECT_FALSE(isOpen);
        isOpen = true;
        return kDescriptor;
    }

    void close(int device) override
    {
        EXPECT_EQ(device, kDescriptor);
        EXPECT_TRUE(isOpen);
        isOpen = false;
    }

    int control(int device, unsigned long request, void *argument) override
    {
        EXPECT_EQ(device, kDescriptor);
        switch (request) {
        case VIDIOC_QUERYCAP: {
            auto &capability = *static_cast<v4l2_capability *>(argument);
            std::strcpy(reinterpret_cast<char *>(capability.driver), driver.c_str());
            std::strcpy(reinterpret_cast<char *>(capability.card), card.c_str());
            return 0;
        }
        case VIDIOC_S_FMT: {
            auto &format = *static_cast<v4l2_format *>(argument);
            EXPECT_EQ(format.type, std::uint32_t{V4L2_BUF_TYPE_VIDEO_OUTPUT});
            asked = format.fmt.pix;
            if (forcedWidth != 0) {
                format.fmt.pix.width = forcedWidth;
            }
            return 0;
        }
        case VIDIOC_SUBSCRIBE_EVENT: {
            const auto &subscription = *static_cast<v4l2_event_subscription *>(argument);
            return subscription.type == offeredEvent ? 0 : fail(EINVAL);
        }
        case VIDIOC_DQEVENT: {
            if (events.empty()) {
                return fail(ENOENT);
            }
            auto &event = *static_cast<v4l2_event *>(argument);
            event.type = offeredEvent;
            std::memcpy(&event.u, &events.front(), sizeof(std::uint32_t));
            events.pop_front();
            return 0;
        }
        default:
            ADD_FAILURE() << "unexpected request " << request;
            return fail(ENOTTY);
        }
    }

    ssize_t write(int device, std::span<const std::uint8_t> bytes) override
    {
        EXPECT_EQ(device, kDescriptor);
        if (writeError != 0) {
            return fail(writeError);
        }
        written.assign(bytes.begin(), bytes.end());
        return static_cast<ssize_t>(bytes.size());
    }

    int otherOpeners(const std::string &path) override
    {
        EXPECT_EQ(path, "/dev/video9");
        ++openerQueries;
        return openers;
    }

    bool present = true;
    std::string driver = "v4l2 loopback";
    std::string card = "Lumivora Control";
    std::uint32_t forcedWidth = 0;
    std::uint32_t offeredEvent = kNewEvent;
    std::deque<std::uint32_t> events;
    int writeError = 0;
    int openers = 0;

    bool isOpen = false;
    int looks = 0;
    int openerQueries = 0;
    v4l2_pix_format asked{};
    std::vector<std::uint8_t> written;

private:
    static int fail(int error)
    {
        errno = error;
        return -1;
    }
};

class LoopbackOutputTest : public ::testing::Test
{
protected:
    FakeV4l2 driver;
    std::chrono::milliseconds now{90000};
    test::LogCapture log;
    LoopbackOutput output{driver, [this] {
                              return now;
                          }};
};

std::vector<std::byte> whitePicture()
{
    return std::vector<std::byte>(kCameraBytes, std::byte{255});
}

} // namespace

TEST_F(LoopbackOutputTest, poll_noDevice_looksEveryTwoSeconds)
{
    driver.present = false;
    output.poll();
    now += 1999ms;
    output.poll();
    EXPECT_EQ(driver.looks, 1);
    now += 1ms;
    output.poll();
    EXPECT_EQ(driver.looks, 2);
    EXPECT_FALSE(output.isOpen());
    EXPECT_EQ(output.clientCount(), 0);
}

TEST_F(LoopbackOutputTest, poll_deviceAppearsLater_isTaken)
{
    driver.present = false;
    output.poll();
    driver.present = true;
    now += 2000ms;
    output.poll();
    EXPECT_TRUE(output.isOpen());
}

TEST_F(LoopbackOutputTest, poll_ourDevice_isSetToTheCamerasFormat)
{
    output.poll();
    ASSERT_TRUE(output.isOpen());
    EXPECT_EQ(driver.asked.width, 1280U);
    EXPECT_EQ(driver.asked.height, 720U);
    EXPECT_EQ(driver.asked.pixelformat, V4L2_PIX_FMT_YUYV);
    EXPECT_EQ(driver.asked.bytesperline, 2560U);
    EXPECT_EQ(driver.asked.sizeimage, 1280U * 720 * 2);
}

TEST_F(LoopbackOutputTest, poll_deviceOfAnotherDriverOrLabel_isLeftAlone)
{
    driver.driver = "uvcvideo";
    output.poll();
    EXPECT_FALSE(output.isOpen());
    EXPECT_FALSE(driver.isOpen);

    driver.driver = "v4l2 loopback";
    driver.card = "Lumivora Control 2";
    now += 2000ms;
    output.poll();
    EXPECT_FALSE(output.isOpen());
    EXPECT_FALSE(driver.isOpen);
}

TEST_F(LoopbackOutputTest, poll_driverInsistsOnAnotherFormat_isLeftAlone)
{
    driver.forcedWidth = 640;
    output.poll();
    EXPECT_FALSE(output.isOpen());
    EXPECT_FALSE(driver.isOpen);
}

TEST_F(LoopbackOutputTest, show_device_getsYuy2)
{
    output.poll();
    output.show(whitePicture());
    ASSERT_EQ(driver.written.size(), 1280U * 720 * 2);
    EXPECT_EQ(driver.written[0], 235); // white in the limited range
    EXPECT_EQ(driver.written[1], 128);
}

TEST_F(LoopbackOutputTest, show_noDevice_doesNothing)
{
    output.show(whitePicture());
    EXPECT_TRUE(driver.written.empty());
}

TEST_F(LoopbackOutputTest, show_driverBusy_dropsThePictureAndKeepsTheDevice)
{
    output.poll();
    driver.writeError = EAGAIN;
    output.show(whitePicture());
    EXPECT_TRUE(output.isOpen());
    EXPECT_TRUE(log.lines(QtWarningMsg).isEmpty());
}

TEST_F(LoopbackOutputTest, show_deviceGone_closesAndTakesItAgainWhenItReturns)
{
    driver.events = {1};
    output.poll();
    EXPECT_EQ(output.clientCount(), 1);
    driver.writeError = ENODEV;
    output.show(whitePicture());
    EXPECT_FALSE(output.isOpen());
    EXPECT_FALSE(driver.isOpen);
    EXPECT_EQ(output.clientCount(), 0);
    EXPECT_EQ(log.lines(QtWarningMsg).size(), 1);

    driver.writeError = 0;
    now += 2000ms;
    output.poll();
    EXPECT_TRUE(output.isOpen());
}

TEST_F(LoopbackOutputTest, clientCount_events_areFollowedToTheLast)
{
    output.poll();
    driver.events = {1, 0, 2};
    output.poll();
    EXPECT_EQ(output.clientCount(), 2);
    driver.events = {0};
    output.poll();
    EXPECT_EQ(output.clientCount(), 0);
}

TEST_F(LoopbackOutputTest, clientCount_oldDriver_isFollowedByItsOwnEvent)
{
    driver.offeredEvent = kOldEvent;
    output.poll();
    driver.events = {1};
    output.poll();
    EXPECT_EQ(output.clientCount(), 1);
}

TEST_F(LoopbackOutputTest, clientCount_noFirstEvent_isTheNumberOfOpenersUntilOneComes)
{
    driver.openers = 1;
    output.poll();
    EXPECT_EQ(output.clientCount(), 1);
    driver.openers = 2;
    now += 2000ms;
    output.poll();
    EXPECT_EQ(output.clientCount(), 2);

    driver.events = {0}; // they had it open, but did not stream
    output.poll();
    EXPECT_EQ(output.clientCount(), 0);
    now += 2000ms;
    output.poll();
    EXPECT_EQ(output.clientCount(), 0);
}

TEST_F(LoopbackOutputTest, clientCount_driverWithoutEvents_isTheNumberOfOpeners)
{
    driver.offeredEvent = 0;
    driver.openers = 1;
    output.poll();
    EXPECT_EQ(output.clientCount(), 1);
    driver.openers = 0;
    now += 2000ms;
    output.poll();
    EXPECT_EQ(output.clientCount(), 0);
}

TEST_F(LoopbackOutputTest, poll_oftenCalled_looksAtOtherProcessesEveryTwoSeconds)
{
    for (int i = 0; i < 40; ++i) {
        output.poll();
        now += 100ms;
    }
    EXPECT_EQ(driver.openerQueries, 2);
}

TEST_F(LoopbackOutputTest, destructor_openDevice_isClosed)
{
    {
        LoopbackOutput other(driver, [this] { return now; });
        other.poll();
        EXPECT_TRUE(driver.isOpen);
    }
    EXPECT_FALSE(driver.isOpen);
}

} // namespace lumivora
