// SPDX-License-Identifier: Apache-2.0
// What a frame pays for entering and leaving Direct2D, against a plain copy of its pixels.
#include "effects/BitmapTransfer.h"
#include "effects/PipelineParts.h"

#include <QImage>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace lumivora {

namespace {

constexpr quint32 kWidth = 1280;
constexpr quint32 kHeight = 720;
constexpr std::size_t kFrameBytes = std::size_t{kWidth} * kHeight * 4;

QImage frame()
{
    QImage image(int{kWidth}, int{kHeight}, QImage::Format_RGB32);
    image.fill(0xff336699);
    return image;
}

ComPtr<ID2D1DeviceContext> createContext()
{
    const DeviceFunctions functions = DeviceFunctions::system();
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> d3dContext;
    ComPtr<IDXGIDevice> dxgiDevice;
    ComPtr<ID2D1Factory1> factory;
    ComPtr<ID2D1Device> device;
    ComPtr<ID2D1DeviceContext> context;
    functions.createD3dDevice(d3dDevice.put(), d3dContext.put());
    functions.queryDxgiDevice(d3dDevice.get(), dxgiDevice.put());
    functions.createFactory(factory.put());
    functions.createDevice(factory.get(), dxgiDevice.get(), device.put());
    functions.createDeviceContext(device.get(), context.put());
    return context;
}

void copyBaseline(benchmark::State &state)
{
    const std::vector<char> source(kFrameBytes, 'x');
    std::vector<char> destination(kFrameBytes);
    for (auto _ : state) {
        std::memcpy(destination.data(), source.data(), kFrameBytes);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
}
BENCHMARK(copyBaseline)->Name("transfer/copy_baseline")->Unit(benchmark::kMicrosecond);

void upload(benchmark::State &state)
{
    const ComPtr<ID2D1DeviceContext> context = createContext();
    const QImage image = frame();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            createBitmapFromBuffer(context, image.constBits(), kWidth, kHeight, false));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
}
BENCHMARK(upload)->Name("transfer/upload")->Unit(benchmark::kMicrosecond);

void uploadAndReadBack(benchmark::State &state)
{
    const ComPtr<ID2D1DeviceContext> context = createContext();
    const ComPtr<ID2D1Bitmap1> readBack =
        createBitmapFromBuffer(context, nullptr, kWidth, kHeight, true);
    QImage image = frame();
    for (auto _ : state) {
        ComPtr<ID2D1Bitmap1> bitmap =
            createBitmapFromBuffer(context, image.constBits(), kWidth, kHeight, false);
        if (!readBackBitmap(context, std::move(bitmap), readBack, image)) {
            state.SkipWithError("read-back failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
}
BENCHMARK(uploadAndReadBack)->Name("transfer/upload_and_read_back")->Unit(benchmark::kMicrosecond);

// The blending of a whole frame, as the cut-out of a person is drawn over the blurred frame.
void drawSourceOver(benchmark::State &state)
{
    const ComPtr<ID2D1DeviceContext> context = createContext();
    const QImage image = frame();
    const ComPtr<ID2D1Bitmap1> source =
        createBitmapFromBuffer(context, image.constBits(), kWidth, kHeight, false);
    const ComPtr<ID2D1Bitmap1> target =
        createBitmapFromBuffer(context, nullptr, kWidth, kHeight, false);
    context->SetTarget(target.get());
    const D2D1_POINT_2F origin{0, 0};
    for (auto _ : state) {
        context->BeginDraw();
        context->DrawImage(source.get(), &origin, nullptr, D2D1_INTERPOLATION_MODE_LINEAR,
                           D2D1_COMPOSITE_MODE_SOURCE_OVER);
        if (FAILED(context->EndDraw())) {
            state.SkipWithError("drawing failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
}
BENCHMARK(drawSourceOver)->Name("transfer/draw_source_over")->Unit(benchmark::kMicrosecond);

} // namespace

} // namespace lumivora

BENCHMARK_MAIN();
