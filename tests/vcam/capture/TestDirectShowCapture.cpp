// SPDX-License-Identifier: Apache-2.0
// Captures cameras of a real DirectShow graph.
#include "vcam/capture/CameraGrabber.h"

#include "direct2d/ComPtr.h"
#include "tests/support/LogCapture.h"
#include "tests/vcam/capture/DirectShowCamera.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QRegularExpression>
#include <QThread>

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <memory>
#include <thread>

#include <windows.h>

#include <tlhelp32.h>

using namespace lumivora;
using namespace lumivora::test;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

// Top left, top right, bottom left, bottom right: no two alike, so that swapped channels, sides or
// rows show.
constexpr std::array<QRgb, 4> kQuarters = {0xFFC80000U, 0xFF00C800U, 0xFF0000C8U, 0xFFC8C800U};

const CameraFormat kArgb{MEDIASUBTYPE_ARGB32, 64, 48, 32};

long drawQuarters(const CameraFormat &format, BYTE *data)
{
    const long height = format.height < 0 ? -format.height : format.height;
    for (long y = 0; y < height; ++y) {
        BYTE *row = data + format.rowBytes() * (format.height < 0 ? y : height - 1 - y);
        for (long x = 0; x < format.width; ++x) {
            const QRgb colour =
                kQuarters[(y < height / 2 ? 0U : 2U) + (x < format.width / 2 ? 0U : 1U)];
            BYTE *pixel = row + x * format.bits / 8;
            pixel[0] = static_cast<BYTE>(qBlue(colour));
            pixel[1] = static_cast<BYTE>(qGreen(colour));
            pixel[2] = static_cast<BYTE>(qRed(colour));
            if (format.bits == 32) {
                pixel[3] = 0; // cameras do not fill it
            }
        }
    }
    return format.bytes();
}

std::shared_ptr<CameraScript> scriptOf(const QString &name, std::vector<CameraFormat> formats)
{
    auto script = std::make_shared<CameraScript>();
    script->name = name;
    script->formats = std::move(formats);
    script->draw = &drawQuarters;
    return script;
}

void expectQuarters(const QImage &image, bool topDown)
{
    for (const int right : {0, 1}) {
        for (const int lower : {0, 1}) {
            const int quarter = (topDown ? lower : 1 - lower) * 2 + right;
            EXPECT_EQ(image.pixel((1 + 2 * right) * image.width() / 4,
                                  (1 + 2 * lower) * image.height() / 4),
                      kQuarters[static_cast<std::size_t>(quarter)])
                << quarter;
        }
    }
}

/** Names in the running object table that graph inspection tools look for. */
QStringList registeredGraphs()
{
    QStringList names;
    ComPtr<IRunningObjectTable> table;
    ComPtr<IEnumMoniker> monikers;
    ComPtr<IBindCtx> context;
    GetRunningObjectTable(0, table.put());
    table->EnumRunning(monikers.put());
    CreateBindCtx(0, context.put());
    for (ComPtr<IMoniker> moniker; monikers->Next(1, moniker.put(), nullptr) == S_OK;) {
        LPOLESTR name = nullptr;
        if (SUCCEEDED(moniker->GetDisplayName(context.get(), nullptr, &name))) {
            names.append(QString::fromWCharArray(name));
            CoTaskMemFree(name);
        }
    }
    return names.filter(QStringLiteral("FilterGraph"));
}

int threadCount()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof(thread);
    int count = 0;
    for (BOOL more = Thread32First(snapshot, &thread); more;
         more = Thread32Next(snapshot, &thread)) {
        count += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    CloseHandle(snapshot);
    return count;
}

class DirectShowCapture : public testing::Test
{
protected:
    DirectShowCapture()
    {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        QObject::connect(
            &grabber, &CameraGrabber::onNewFrameAvailable, &grabber, [this] { ++_frames; },
            Qt::DirectConnection);
    }
    ~DirectShowCapture() override
    {
        grabber.stopCamera();
        CoUninitialize();
    }

    template <typename Condition>
    static bool waitUntil(const Condition &condition, std::chrono::milliseconds patience = 10s)
    {
        const QDeadlineTimer deadline(patience);
        while (!condition()) {
            if (deadline.hasExpired()) {
                return false;
            }
            QThread::sleep(10ms);
        }
        return true;
    }

    [[nodiscard]] bool framesCome(int count, std::chrono::milliseconds patience = 10s)
    {
        const int before = _frames;
        return waitUntil([this, before, count] { return _frames >= before + count; }, patience);
    }

    [[nodiscard]] QImage nextImage()
    {
        EXPECT_TRUE(framesCome(1));
        QImage image;
        grabber.copyLatestImage(image, nullptr);
        return image;
    }

    /** Captures the test's first camera. */
    [[nodiscard]] bool start(int height = -48)
    {
        return grabber.startCamera(64, height, 0, {}, QStringLiteral("Test"));
    }

    CameraGrabber grabber;

private:
    std::atomic<int> _frames = 0; // counted on the streaming thread
};

class CapturedFormats : public DirectShowCapture, public testing::WithParamInterface<CameraFormat>
{};

} // namespace

TEST_F(DirectShowCapture, listDevices_severalCameras_systemsOrderWithoutOldDrivers)
{
    const auto old = scriptOf(QStringLiteral("Test Old"), {kArgb});
    old->oldDriverModel = true;
    const RegisteredCamera second(3, scriptOf(QStringLiteral("Test Antelope"), {kArgb}));
    const RegisteredCamera skipped(2, old);
    const RegisteredCamera first(1, scriptOf(QStringLiteral("Test Zebra"), {kArgb}));
    QList<CameraDevice> devices;
    grabber.listDevices(devices);
    QStringList names;
    for (const CameraDevice &device : devices) {
        EXPECT_NE(device.handle, nullptr);
        names.append(device.name);
    }
    EXPECT_THAT(names.filter(QStringLiteral("Test")),
                ElementsAre(QStringLiteral("Test Zebra"), QStringLiteral("Test Antelope")));
}

TEST_P(CapturedFormats, capture_fourQuarters_rightColoursDepthAndTexts)
{
    const RegisteredCamera camera(0, scriptOf(QStringLiteral("Test Camera"), {GetParam()}));
    const LogCapture log;
    ASSERT_TRUE(start());
    EXPECT_TRUE(grabber.isRunning());
    const QImage image = nextImage();
    ASSERT_EQ(image.size(), QSize(GetParam().width, std::abs(GetParam().height)));
    EXPECT_EQ(image.depth(), GetParam().bits);
    expectQuarters(image, true);
    EXPECT_TRUE(log.contains(QStringLiteral("Starting Test Camera camera at 64x48 PREVIEWING")));
    EXPECT_TRUE(log.contains(
        QStringLiteral("Successfully started Test Camera camera at 64x48 %1bits PREVIEWING")
            .arg(GetParam().bits)));
}

TEST_P(CapturedFormats, capture_positiveHeight_bottomRowFirst)
{
    const RegisteredCamera camera(0, scriptOf(QStringLiteral("Test Camera"), {GetParam()}));
    ASSERT_TRUE(start(48));
    expectQuarters(nextImage(), false);
}

INSTANTIATE_TEST_SUITE_P(All, CapturedFormats,
                         testing::Values(kArgb, CameraFormat{MEDIASUBTYPE_RGB32, 64, 48, 32},
                                         CameraFormat{MEDIASUBTYPE_RGB24, 64, 48, 24},
                                         CameraFormat{MEDIASUBTYPE_RGB24, 61, 48, 24},
                                         CameraFormat{MEDIASUBTYPE_ARGB32, 64, -48, 32}));

TEST_F(DirectShowCapture, capture_firstOfTwoZeroScores_opened)
{
    const RegisteredCamera camera(
        0, scriptOf(QStringLiteral("Test Camera"), {{MEDIASUBTYPE_ARGB32, 640, 480, 32},
                                                    {MEDIASUBTYPE_ARGB32, 1280, 960, 32},
                                                    {MEDIASUBTYPE_ARGB32, 1280, 720, 32}}));
    ASSERT_TRUE(grabber.startCamera(1280, -720, 0, {}, QStringLiteral("Test")));
    EXPECT_EQ(nextImage().size(), QSize(1280, 960));
}

TEST_F(DirectShowCapture, capture_cameraThatCanFlip_keptFromIt)
{
    const auto script = scriptOf(QStringLiteral("Test Camera"), {kArgb});
    const RegisteredCamera camera(0, script);
    script->flipsAble = VideoControlFlag_FlipHorizontal | VideoControlFlag_FlipVertical;
    script->flipMode = VideoControlFlag_FlipVertical | VideoControlFlag_Trigger;
    ASSERT_TRUE(start());
    EXPECT_EQ(script->flipMode, VideoControlFlag_Trigger);

    script->flipsAble = VideoControlFlag_FlipHorizontal;
    script->flipMode = VideoControlFlag_FlipHorizontal | VideoControlFlag_FlipVertical;
    ASSERT_TRUE(start());
    EXPECT_EQ(script->flipMode, VideoControlFlag_FlipVertical);
}

TEST_F(DirectShowCapture, capture_indexBeyondTheList_fails)
{
    const RegisteredCamera camera(0, scriptOf(QStringLiteral("Test Camera"), {kArgb}));
    QList<CameraDevice> devices;
    grabber.listDevices(devices);
    EXPECT_FALSE(
        grabber.startCamera(64, -48, static_cast<int>(devices.size()), {}, QStringLiteral("Test")));
    EXPECT_FALSE(grabber.isRunning());
}

TEST_F(DirectShowCapture, capture_cameraWithoutUsableFormat_failsWithItsText)
{
    const RegisteredCamera camera(
        0, scriptOf(QStringLiteral("Test Camera"), {{MEDIASUBTYPE_ARGB32, 0, 0, 32}}));
    const LogCapture log;
    EXPECT_FALSE(start());
    EXPECT_FALSE(grabber.isRunning());
    EXPECT_TRUE(
        log.contains(QStringLiteral("Failed to start Test Camera camera at 64x48 PREVIEWING")));
}

TEST_F(DirectShowCapture, stopCamera_running_noFrameAfterAndStartsAgain)
{
    const RegisteredCamera camera(0, scriptOf(QStringLiteral("Test Camera"), {kArgb}));
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(start());
        EXPECT_FALSE(nextImage().isNull());
        grabber.stopCamera();
        EXPECT_FALSE(grabber.isRunning());
        EXPECT_FALSE(framesCome(1, 200ms));
    }
}

TEST_F(DirectShowCapture, startCamera_running_registeredForInspectionUntilStopped)
{
    const RegisteredCamera camera(0, scriptOf(QStringLiteral("Test Camera"), {kArgb}));
    ASSERT_TRUE(start());
    const QStringList names = registeredGraphs();
    ASSERT_EQ(names.size(), 1);
    const QRegularExpression form(
        QStringLiteral("^!FilterGraph [0-9a-f]{8} pid %1$")
            .arg(QCoreApplication::applicationPid(), 8, 16, QLatin1Char('0')));
    EXPECT_TRUE(form.match(names.first()).hasMatch()) << names.first().toStdString();
    grabber.stopCamera();
    EXPECT_THAT(registeredGraphs(), ElementsAre());
}

TEST_F(DirectShowCapture, unplug_whileCapturing_notRunningAndStartsAgain)
{
    const auto script = scriptOf(QStringLiteral("Test Camera"), {kArgb});
    const RegisteredCamera camera(0, script);
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
    script->unplug();
    EXPECT_TRUE(waitUntil([this] { return !grabber.isRunning(); }));
    grabber.stopCamera();
    script->stalled = false;
    ASSERT_TRUE(start());
    EXPECT_TRUE(grabber.isRunning());
    EXPECT_FALSE(nextImage().isNull());
}

TEST_F(DirectShowCapture, stall_whileCapturing_runningAndGoesOn)
{
    const auto script = scriptOf(QStringLiteral("Test Camera"), {kArgb});
    const RegisteredCamera camera(0, script);
    ASSERT_TRUE(start());
    EXPECT_FALSE(nextImage().isNull());
    script->stalled = true;
    EXPECT_FALSE(framesCome(3, 300ms)); // but for those on their way
    EXPECT_TRUE(grabber.isRunning());
    script->stalled = false;
    expectQuarters(nextImage(), true);
}

TEST_F(DirectShowCapture, samples_emptyOrShort_droppedSilently)
{
    const auto script = scriptOf(QStringLiteral("Test Camera"), {kArgb});
    std::atomic<long> length = 0;
    script->draw = [&length](const CameraFormat &format, BYTE *data) {
        return std::min(drawQuarters(format, data), length.load());
    };
    const RegisteredCamera camera(0, script);
    ASSERT_TRUE(start());
    EXPECT_FALSE(framesCome(1, 200ms));
    length = kArgb.bytes() - 1;
    EXPECT_FALSE(framesCome(1, 200ms));
    length = kArgb.bytes();
    EXPECT_TRUE(framesCome(1));
    grabber.stopCamera();
}

TEST_F(DirectShowCapture, capture_onThreadsOfAnyApartment_works)
{
    for (const bool windows : {false, true}) {
        std::thread thread([this, windows] {
            if (windows) {
                CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); // as the interface thread is
            }
            {
                const RegisteredCamera camera(0, scriptOf(QStringLiteral("Test Camera"), {kArgb}));
                EXPECT_TRUE(start());
                EXPECT_TRUE(framesCome(2));
                grabber.stopCamera();
            }
            if (windows) {
                CoUninitialize();
            }
        });
        thread.join();
    }
}

TEST_F(DirectShowCapture, startStop_twoHundredTimes_leaksNoFilterAndNoThread)
{
    const auto script = scriptOf(QStringLiteral("Test Camera"), {kArgb});
    const RegisteredCamera camera(0, script);
    const LogCapture log;
    const auto cycle = [this] {
        ASSERT_TRUE(start());
        ASSERT_TRUE(framesCome(1));
        grabber.stopCamera();
    };
    for (int i = 0; i < 10; ++i) {
        cycle(); // what is allocated once
    }
    const int threadsBefore = threadCount();
    for (int i = 0; i < 200; ++i) {
        cycle();
    }
    EXPECT_GT(threadsBefore, 0);
    EXPECT_LE(threadCount(), threadsBefore + 1); // an idle pool thread comes and goes
    EXPECT_EQ(script.use_count(), 2);            // the test's and the class's: no filter is left
    EXPECT_THAT(registeredGraphs(), ElementsAre());
}
