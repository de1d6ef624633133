// SPDX-License-Identifier: Apache-2.0
// Stands in for the maker's hardware: a camera and a microphone that PipeWire lists as its own.
#include "tools/probe/FrameStamp.h"
#include "tools/standin/Microphone.h"
#include "tools/standin/TestCard.h"
#include "tools/standin/VideoFile.h"
#include "virtual_devices/VideoSourceNode.h"

#include <QBuffer>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

using namespace lumivora;
using namespace lumivora::tools;

namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::duration;
using std::chrono::duration_cast;

constexpr int kJpegQuality = 85;
constexpr int kMinWidth = 64;
constexpr int kMaxSide = 8192;

volatile std::sig_atomic_t stopRequested = 0;

struct Options
{
    VideoSourceNode::Config camera;
    QString video;
    bool microphone = true;
    std::optional<double> seconds;
};

std::optional<PixelFormat> pixelFormatFrom(const QString &name)
{
    static const std::array<std::pair<const char *, PixelFormat>, 7> kNames = {{
        {"YUY2", PixelFormat::Yuy2},
        {"I420", PixelFormat::I420},
        {"NV12", PixelFormat::Nv12},
        {"BGRA", PixelFormat::Bgra},
        {"BGRx", PixelFormat::Bgrx},
        {"RGB", PixelFormat::Rgb},
        {"MJPG", PixelFormat::Mjpg},
    }};
    for (const auto &[text, format] : kNames) {
        if (name.compare(QLatin1StringView(text), Qt::CaseInsensitive) == 0) {
            return format;
        }
    }
    return std::nullopt;
}

std::nullopt_t refuse(const char *option, const QString &value)
{
    std::fprintf(stderr, "lumivora-standin: --%s cannot be %s\n", option, qPrintable(value));
    return std::nullopt;
}

/** @return none, after a word on the standard error stream, when an option makes no sense */
std::optional<Options> parseOptions(const QCoreApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Offers a camera and a microphone \"Lumivora Camera\" through PipeWire.\n\n"
                       "Commands on the standard input, one a line, each answered by a line of "
                       "JSON:\n"
                       "  stall SECONDS   the camera stays but gives no frames\n"
                       "  vanish          camera and microphone are unplugged\n"
                       "  return          ... and plugged in again\n"
                       "  rate N          frames a second from now on\n"
                       "  stats           what happened so far\n"
                       "  quit"));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({
        {QStringLiteral("rate"), QStringLiteral("Frames a second (30)."), QStringLiteral("N"),
         QStringLiteral("30")},
        {QStringLiteral("size"), QStringLiteral("Picture size (1280x720)."),
         QStringLiteral("WIDTHxHEIGHT"), QStringLiteral("1280x720")},
        {QStringLiteral("format"),
         QStringLiteral("YUY2 (the default), I420, NV12, BGRA, BGRx, RGB or MJPG."),
         QStringLiteral("FORMAT"), QStringLiteral("YUY2")},
        {QStringLiteral("extra-formats"), QStringLiteral("Further formats to offer after it."),
         QStringLiteral("FORMAT,...")},
        {QStringLiteral("video"), QStringLiteral("Play this file instead of the test card."),
         QStringLiteral("FILE")},
        {QStringLiteral("no-microphone"), QStringLiteral("Offer the camera alone.")},
        {QStringLiteral("seconds"), QStringLiteral("End after so long."), QStringLiteral("N")},
    });
    parser.process(application);

    Options options;
    options.camera.nodeName = "lumivora-standin-camera";
    options.camera.description = "Lumivora Camera";
    options.video = parser.value(QStringLiteral("video"));
    options.microphone = !parser.isSet(QStringLiteral("no-microphone"));

    bool valid = false;
    const QString rate = parser.value(QStringLiteral("rate"));
    options.camera.framesPerSecond = rate.toInt(&valid);
    if (!valid || options.camera.framesPerSecond < 1 || options.camera.framesPerSecond > 1000) {
        return refuse("rate", rate);
    }
    const QString size = parser.value(QStringLiteral("size"));
    const int width = size.section(u'x', 0, 0).toInt();
    const int height = size.section(u'x', 1).toInt();
    if (std::min(width, height) < kMinWidth || std::max(width, height) > kMaxSide ||
        width % 2 != 0 || height % 2 != 0) {
        return refuse("size", size);
    }
    QStringList names = {parser.value(QStringLiteral("format"))};
    names += parser.value(QStringLiteral("extra-formats")).split(u',', Qt::SkipEmptyParts);
    for (const QString &name : names) {
        const auto pixels = pixelFormatFrom(name);
        if (!pixels) {
            return refuse("format", name);
        }
        options.camera.formats.push_back({*pixels, width, height});
    }
    if (parser.isSet(QStringLiteral("seconds"))) {
        const QString seconds = parser.value(QStringLiteral("seconds"));
        options.seconds = seconds.toDouble(&valid);
        if (!valid || *options.seconds < 0) {
            return refuse("seconds", seconds);
        }
    }
    return options;
}

std::uint64_t monotonicUs()
{
    // The steady clock is CLOCK_MONOTONIC here, which is what stamps promise.
    return static_cast<std::uint64_t>(
        duration_cast<std::chrono::microseconds>(SteadyClock::now().time_since_epoch()).count());
}

/** @return bytes written, 0 when the picture does not fit */
std::size_t encodeJpeg(const cv::Mat &picture, std::span<std::uint8_t> out)
{
    const QImage image(picture.data, picture.cols, picture.rows,
                       static_cast<qsizetype>(picture.step), QImage::Format_RGB32);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "JPG", kJpegQuality) ||
        static_cast<std::size_t>(bytes.size()) > out.size()) {
        return 0;
    }
    std::memcpy(out.data(), bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return static_cast<std::size_t>(bytes.size());
}

/** The devices, the picture and the time between frames; all on one thread. */
class StandIn
{
public:
    explicit StandIn(Options options)
        : _options(std::move(options)), _rate(_options.camera.framesPerSecond),
          _card(_options.camera.formats.front().width, _options.camera.formats.front().height)
    {}

    [[nodiscard]] bool start()
    {
        if (!_options.video.isEmpty()) {
            const PictureFormat &format = _options.camera.formats.front();
            _video = VideoFile::open(_options.video.toStdString(), format.width, format.height,
                                     _options.camera.framesPerSecond);
            if (!_video) {
                return false;
            }
        }
        if (!plugIn()) {
            return false;
        }
        _started = SteadyClock::now();
        restartPacing();
        return true;
    }

    /** Until the time is over, somebody says quit or a signal comes. */
    void run()
    {
        report(QStringLiteral("ready"));
        while (!_quit && stopRequested == 0 && !isTimeOver()) {
            waitForInput(_next);
            if (SteadyClock::now() >= _next) {
                tick();
            }
        }
        report(QStringLiteral("end"));
    }

private:
    [[nodiscard]] bool plugIn()
    {
        if (!_camera) {
            _camera = VideoSourceNode::create(_options.camera);
        }
        if (_options.microphone && !_microphone) {
            _microphone =
                Microphone::create("lumivora-standin-microphone", _options.camera.description);
        }
        return _camera && (_microphone || !_options.microphone);
    }

    [[nodiscard]] bool isTimeOver() const
    {
        return _options.seconds &&
               SteadyClock::now() - _started >= duration<double>(*_options.seconds);
    }

    /** Deadlines are absolute: what one frame is late does not delay the next. */
    void restartPacing()
    {
        _paceStart = SteadyClock::now();
        _paceTicks = 0;
        _next = _paceStart;
    }

    void tick()
    {
        const auto now = SteadyClock::now();
        offerFrame(now);
        ++_number;
        ++_paceTicks;
        _next = _paceStart + duration_cast<SteadyClock::duration>(
                                 duration<double>(static_cast<double>(_paceTicks) / _rate));
        if (_next + std::chrono::seconds(1) < now) {
            restartPacing(); // the machine slept
        }
    }

    void offerFrame(SteadyClock::time_point now)
    {
        if (!_camera || now < _stalledUntil || !_camera->isStreaming()) {
            return;
        }
        cv::Mat &picture = _video ? _video->next() : _card.draw(_number);
        drawFrameStamp(picture.data, picture.cols, picture.rows, static_cast<int>(picture.step),
                       {_number, monotonicUs()});
        const auto result =
            _camera->offer([&](const PictureFormat &format, std::span<std::uint8_t> out) {
                if (format.pixels == PixelFormat::Mjpg) {
                    return encodeJpeg(picture, out);
                }
                convertPicture(picture.data, picture.step, format, out.data());
                return PictureLayout::of(format).bytes;
            });
        if (result != VideoSourceNode::Offer::NotStreaming) {
            ++_offered;
        }
        if (result == VideoSourceNode::Offer::Dropped) {
            ++_dropped;
        }
    }

    void waitForInput(SteadyClock::time_point until)
    {
        const auto left = std::max(SteadyClock::duration::zero(), until - SteadyClock::now());
        const auto seconds = duration_cast<std::chrono::seconds>(left);
        const timespec timeout = {seconds.count(),
                                  duration_cast<std::chrono::nanoseconds>(left - seconds).count()};
        // A negative descriptor is skipped: the input may end while the devices stay.
        pollfd input = {_inputEnded ? -1 : STDIN_FILENO, POLLIN, 0};
        if (ppoll(&input, 1, &timeout, nullptr) <= 0) {
            return;
        }
        std::array<char, 256> bytes{};
        const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count <= 0) {
            _inputEnded = count == 0 || errno != EINTR;
            return;
        }
        _input.append(bytes.data(), count);
        for (qsizetype end = _input.indexOf('\n'); end >= 0; end = _input.indexOf('\n')) {
            obey(QString::fromUtf8(_input.first(end)).simplified());
            _input.remove(0, end + 1);
        }
    }

    void obey(const QString &line)
    {
        const QString command = line.section(u' ', 0, 0);
        const double argument = line.section(u' ', 1).toDouble();
        bool understood = true;
        if (command == u"stall" && argument > 0) {
            _stalledUntil = SteadyClock::now() +
                            duration_cast<SteadyClock::duration>(duration<double>(argument));
        } else if (command == u"vanish") {
            _camera.reset();
            _microphone.reset();
        } else if (command == u"return") {
            understood = plugIn();
        } else if (command == u"rate" && argument > 0) {
            _rate = argument;
            restartPacing();
        } else if (command == u"quit") {
            _quit = true;
        } else {
            understood = command == u"stats";
        }
        report(command, understood);
    }

    void report(const QString &event, bool understood = true)
    {
        const QJsonObject line = {
            {QStringLiteral("event"), event},
            {QStringLiteral("ok"), understood},
            {QStringLiteral("number"), static_cast<qint64>(_number)},
            {QStringLiteral("offered"), static_cast<qint64>(_offered)},
            {QStringLiteral("dropped"), static_cast<qint64>(_dropped)},
            {QStringLiteral("clients"), _camera ? _camera->clientCount() : 0},
            {QStringLiteral("plugged"), _camera != nullptr},
            {QStringLiteral("rate"), _rate},
            {QStringLiteral("seconds"), duration<double>(SteadyClock::now() - _started).count()},
        };
        std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
        std::fflush(stdout);
    }

    const Options _options;
    double _rate;
    TestCard _card;
    std::unique_ptr<VideoFile> _video;
    std::unique_ptr<VideoSourceNode> _camera;
    std::unique_ptr<Microphone> _microphone;

    SteadyClock::time_point _started;
    SteadyClock::time_point _paceStart;
    SteadyClock::time_point _next;
    SteadyClock::time_point _stalledUntil;
    std::uint64_t _paceTicks = 0;
    std::uint32_t _number = 0; // of the next frame; counts on while nobody looks
    std::uint64_t _offered = 0;
    std::uint64_t _dropped = 0;

    QByteArray _input;
    bool _inputEnded = false;
    bool _quit = false;
};

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumivora-standin"));
    QCoreApplication::setApplicationVersion(QStringLiteral(LUMIVORA_VERSION));
    for (const int signal : {SIGTERM, SIGINT}) {
        struct sigaction action{};
        action.sa_handler = [](int) {
            stopRequested = 1;
        };
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN); // whoever started us may be gone already

    auto options = parseOptions(application);
    if (!options) {
        return 2;
    }
    StandIn standIn(*std::move(options));
    if (!standIn.start()) {
        return 1;
    }
    standIn.run();
    return 0;
}
