// SPDX-License-Identifier: Apache-2.0
// One writer at full speed, four readers, each in a process of its own: no torn frame, ever.

#include "tests/vcam/framechannel/ActorProcess.h"
#include "tests/vcam/framechannel/RawSection.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

namespace lumivora::test {

namespace {

void runFourReaders(const char *width, const char *height, const char *frames)
{
    const PrivateRuntime runtime;
    const auto arguments = [&](const char *command) {
        return QStringList{QLatin1StringView(command), QLatin1StringView(width),
                           QLatin1StringView(height), QLatin1StringView(frames)};
    };
    ActorProcess writer(arguments("write"));
    ASSERT_EQ(writer.readLine(), "created");
    std::array<std::unique_ptr<ActorProcess>, 4> readers;
    for (auto &reader : readers) {
        reader = std::make_unique<ActorProcess>(arguments("read"));
        ASSERT_EQ(reader->readLine(), "attached");
    }
    writer.go();
    ASSERT_EQ(writer.readLine(), "done");
    for (std::size_t i = 0; i < readers.size(); ++i) {
        const QByteArray line = readers[i]->readLine();
        const QList<QByteArray> figures = line.split(' ');
        ASSERT_EQ(figures.size(), 2) << line.toStdString();
        const int seen = figures[0].toInt();
        std::printf("reader %zu: %d of %s frames\n", i, seen, frames);
        EXPECT_GE(seen, 100) << "reader " << i << " hardly got any frame";
        EXPECT_EQ(figures[1], "0") << "torn frames in reader " << i;
    }
}

} // namespace

TEST(FrameChannelStressTest, read_smallFrames200000_noneTorn)
{
    runFourReaders("320", "180", "200000");
}

TEST(FrameChannelStressTest, read_hdFrames5000_noneTorn)
{
    runFourReaders("1280", "720", "5000");
}

} // namespace lumivora::test
