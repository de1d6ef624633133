// SPDX-License-Identifier: Apache-2.0
// What a frame costs on its way through the channel, against plain copies of as many bytes.
#include "vcam/framechannel/FrameChannel.h"
#include "vcam/framechannel/FrameChannelReader.h"
#include "vcam/framechannel/InstanceCounter.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <vector>

namespace lumivora {

namespace {

constexpr std::uint32_t kWidth = 1280;
constexpr std::uint32_t kHeight = 720;
constexpr std::uint64_t kFrameDuration100ns = 330000;
constexpr std::size_t kFrameBytes = std::size_t{kWidth} * kHeight * kBytesPerPixel;

void countBytes(benchmark::State &state)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
}

// Three destinations in turn, as the channel has: the cache holds as much of them.
void copyBaseline(benchmark::State &state)
{
    const std::vector<char> source(kFrameBytes, 'x');
    std::array<std::vector<char>, kSlotCount> slots;
    slots.fill(std::vector<char>(kFrameBytes));
    std::size_t frame = 0;
    for (auto _ : state) {
        std::memcpy(slots[++frame % kSlotCount].data(), source.data(), kFrameBytes);
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

void writeFrame(benchmark::State &state)
{
    const std::unique_ptr<FrameChannel> channel =
        FrameChannel::create(kWidth, kHeight, kFrameDuration100ns);
    if (!channel) {
        state.SkipWithError("no channel");
        return;
    }
    const std::vector<char> pixels(kFrameBytes, 'x');
    for (auto _ : state) {
        channel->writeFrame(pixels.data(), pixels.size(), 0);
    }
    countBytes(state);
}

void copyOutBaseline(benchmark::State &state)
{
    std::array<std::vector<char>, kSlotCount> slots;
    slots.fill(std::vector<char>(kFrameBytes, 'x'));
    std::vector<char> destination(kFrameBytes);
    std::size_t frame = 0;
    for (auto _ : state) {
        std::memcpy(destination.data(), slots[++frame % kSlotCount].data(), kFrameBytes);
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

void copyLatest(benchmark::State &state)
{
    const std::unique_ptr<FrameChannel> channel =
        FrameChannel::create(kWidth, kHeight, kFrameDuration100ns);
    const std::unique_ptr<FrameChannelReader> reader = FrameChannelReader::open();
    if (!channel || !reader) {
        state.SkipWithError("no channel");
        return;
    }
    const std::vector<char> pixels(kFrameBytes, 'x');
    std::vector<std::byte> frame(kFrameBytes);
    for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
        channel->writeFrame(pixels.data(), pixels.size(), 0);
    }
    const char nothing = 0;
    for (auto _ : state) {
        channel->writeFrame(&nothing, 0, 0); // on to the next slot, without a copy of its own
        benchmark::DoNotOptimize(reader->copyLatest(frame, 0));
    }
    countBytes(state);
}

void readCount(benchmark::State &state)
{
    InstanceCounter counter;
    if (!counter.open()) {
        state.SkipWithError("no counter");
        return;
    }
    std::uint32_t count = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(counter.read(count));
    }
}

BENCHMARK(copyBaseline)->Name("frames/copy_in_baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(writeFrame)->Name("frames/write_frame")->Unit(benchmark::kMicrosecond);
BENCHMARK(copyOutBaseline)->Name("frames/copy_out_baseline")->Unit(benchmark::kMicrosecond);
BENCHMARK(copyLatest)->Name("frames/copy_latest")->Unit(benchmark::kMicrosecond);
BENCHMARK(readCount)->Name("frames/read_count")->Unit(benchmark::kNanosecond);

} // namespace

} // namespace lumivora

int main(int argc, char **argv)
{
    // Runtime folders lie in memory; and a camera that is in use has its own.
    const QTemporaryDir runtime(QStringLiteral("/dev/shm/lumivora-bench-XXXXXX"));
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
