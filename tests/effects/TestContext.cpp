// SPDX-License-Identifier: Apache-2.0
#include "tests/effects/TestContext.h"

#include "effects/PipelineParts.h"

#include <gmock/gmock.h>

namespace lumivora::test {

ComPtr<ID2D1DeviceContext> createContext()
{
    const DeviceFunctions functions = DeviceFunctions::system();
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> d3dContext;
    ComPtr<IDXGIDevice> dxgiDevice;
    ComPtr<ID2D1Factory1> factory;
    ComPtr<ID2D1Device> device;
    ComPtr<ID2D1DeviceContext> context;
    const bool created =
        SUCCEEDED(functions.createD3dDevice(d3dDevice.put(), d3dContext.put())) &&
        SUCCEEDED(functions.queryDxgiDevice(d3dDevice.get(), dxgiDevice.put())) &&
        SUCCEEDED(functions.createFactory(factory.put())) &&
        SUCCEEDED(functions.createDevice(factory.get(), dxgiDevice.get(), device.put())) &&
        SUCCEEDED(functions.createDeviceContext(device.get(), context.put()));
    EXPECT_TRUE(created);
    return context;
}

QImage patternImage(int width, int height, QImage::Format format)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.setPixel(x, y, qRgb(x * 7 + y, x + y * 5, 255 - x * 3 - y));
        }
    }
    return image.convertToFormat(format);
}

QByteArray pixelsOf(const QImage &image)
{
    QByteArray result;
    for (int y = 0; y < image.height(); ++y) {
        result.append(reinterpret_cast<const char *>(image.constScanLine(y)),
                      qsizetype{image.width()} * image.depth() / 8);
    }
    return result;
}

} // namespace lumivora::test
