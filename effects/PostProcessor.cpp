// SPDX-License-Identifier: Apache-2.0
#include "effects/PostProcessor.h"

#include "app/core/BaseSettings.h"
#include "effects/ActiveEffects.h"
#include "effects/BitmapTransfer.h"
#include "effects/EffectsLog.h"
#include "effects/PipelineParts.h"
#include "effects/SubProcessor.h"

#include <QImage>

#include <utility>

using lumivora::ActiveEffects;
using lumivora::ComPtr;
using lumivora::createBitmapFromBuffer;
using lumivora::DeviceFunctions;
using lumivora::lcEffects;
using lumivora::PipelineParts;

namespace {

// D2D1_PRIMITIVE_BLEND_MAX, by value because not every Windows header has the name.
constexpr auto kPrimitiveBlendMax = static_cast<D2D1_PRIMITIVE_BLEND>(4);

// The frame as the upload wants it: 32 bits a pixel, rows without padding. Shares the frame's
// pixels where they are that already.
QImage uploadable(const QImage &frame)
{
    constexpr int kBytesPerPixel = 4;
    if (frame.depth() != 8 * kBytesPerPixel) {
        return frame.convertToFormat(QImage::Format_ARGB32);
    }
    return frame.bytesPerLine() == qsizetype{frame.width()} * kBytesPerPixel ? frame : frame.copy();
}

} // namespace

class PostProcessor::Opaque
{
public:
    Opaque(PostProcessor *processor, BaseSettings *store) : owner(processor), settings(store) {}
    ~Opaque();

    Opaque(const Opaque &) = delete;
    Opaque &operator=(const Opaque &) = delete;

    /** Goes as far as it can; logs what it fails at and leaves nothing behind then. */
    bool createDevice(const DeviceFunctions &functions);
    void releaseDevice();

    /** Whether one of the stages there are has something to do. */
    [[nodiscard]] bool hasWork(const ActiveEffects &active) const;

    [[nodiscard]] ComPtr<ID2D1Bitmap1> upload(const QImage &frame) const;

    /** The bitmap to read frames of that size back with, the kept one while it fits. */
    [[nodiscard]] ComPtr<ID2D1Bitmap1> readBackBitmapFor(const QSize &frameSize);

    PostProcessor *owner;
    BaseSettings *settings;
    std::shared_ptr<SubProcessor> tone;
    ComPtr<ID2D1Factory1> factory;
    ComPtr<ID3D11Device> d3dDevice;
    ComPtr<ID3D11DeviceContext> d3dContext;
    ComPtr<ID2D1DeviceContext> context; // shared with every stage
    ComPtr<ID2D1Bitmap1> readBack;
    ComPtr<ID2D1Device> d2dDevice;
    ComPtr<ID2D1Effect> blendEffect; // no frame is drawn with it

private:
    const char *tryCreateDevice(const DeviceFunctions &functions);
};

PostProcessor::Opaque::~Opaque()
{
    tone = nullptr;
    releaseDevice();
    qCDebug(lcEffects, "PostProcessor::Opaque DCTOR!");
}

bool PostProcessor::Opaque::createDevice(const DeviceFunctions &functions)
{
    if (const char *const failure = tryCreateDevice(functions); failure != nullptr) {
        releaseDevice();
        qCWarning(lcEffects, "%s", failure);
        return false;
    }
    return true;
}

// Null, or what failed.
const char *PostProcessor::Opaque::tryCreateDevice(const DeviceFunctions &functions)
{
    if (FAILED(functions.createD3dDevice(d3dDevice.put(), d3dContext.put()))) {
        return "Failed to create D3D Device";
    }
    ComPtr<IDXGIDevice> dxgiDevice;
    if (FAILED(functions.queryDxgiDevice(d3dDevice.get(), dxgiDevice.put()))) {
        return "Failed to create DXG device";
    }
    if (FAILED(functions.createFactory(factory.put()))) {
        return "Failed to create D2D Factory";
    }
    if (FAILED(functions.createDevice(factory.get(), dxgiDevice.get(), d2dDevice.put()))) {
        return "Failed to create D2D Device";
    }
    if (FAILED(functions.createDeviceContext(d2dDevice.get(), context.put()))) {
        return "Failed to create D2D CreateDeviceContext";
    }
    if (FAILED(functions.createBlendEffect(context.get(), blendEffect.put()))) {
        return "Failed to create D2D Blend Effect";
    }
    context->SetPrimitiveBlend(kPrimitiveBlendMax);
    return nullptr;
}

void PostProcessor::Opaque::releaseDevice()
{
    // In the reverse of the order in which they were made.
    readBack = nullptr;
    blendEffect = nullptr;
    context = nullptr;
    d2dDevice = nullptr;
    factory = nullptr;
    d3dContext = nullptr;
    d3dDevice = nullptr;
}

bool PostProcessor::Opaque::hasWork(const ActiveEffects &active) const
{
    return active.tone && tone != nullptr;
}

ComPtr<ID2D1Bitmap1> PostProcessor::Opaque::upload(const QImage &frame) const
{
    const QImage pixels = uploadable(frame);
    return createBitmapFromBuffer(context, pixels.constBits(), static_cast<quint32>(pixels.width()),
                                  static_cast<quint32>(pixels.height()), false);
}

ComPtr<ID2D1Bitmap1> PostProcessor::Opaque::readBackBitmapFor(const QSize &frameSize)
{
    const auto width = static_cast<quint32>(frameSize.width());
    const auto height = static_cast<quint32>(frameSize.height());
    if (readBack) {
        const D2D1_SIZE_U size = readBack->GetPixelSize();
        if (size.width == width && size.height == height) {
            return readBack;
        }
    }
    readBack = createBitmapFromBuffer(context, nullptr, width, height, true);
    return readBack;
}

PostProcessor::PostProcessor(BaseSettings *settings, QObject *parent)
    : PostProcessor(settings, parent, PipelineParts::standard())
{}

PostProcessor::PostProcessor(BaseSettings *settings, QObject *parent, const PipelineParts &parts)
    : QObject(parent), _opaque(std::make_shared<Opaque>(this, settings))
{
    if (_opaque->createDevice(parts.device) && parts.tone) {
        _opaque->tone = parts.tone(_opaque->context);
    }
}

PostProcessor::~PostProcessor()
{
    _opaque = nullptr;
    qCDebug(lcEffects, "PostProcessor DCTOR!");
}

void PostProcessor::processFrame(QImage &frame)
{
    if (frame.isNull()) {
        return;
    }
    const ActiveEffects active = ActiveEffects::fromSettings(*_opaque->settings);
    if (!_opaque->hasWork(active)) {
        return;
    }

    ComPtr<ID2D1Bitmap1> current = _opaque->upload(frame);
    if (!current) {
        qCWarning(lcEffects, "unable to generate a new sample buffer");
        return;
    }

    const auto width = static_cast<float>(frame.width());
    const auto height = static_cast<float>(frame.height());
    if (active.tone && _opaque->tone) {
        current = _opaque->tone->processImage(
            std::move(current), width, height,
            _opaque->settings->cameraSetting(BaseSettings::Settings::SkinTone));
    }

    // On failure the captured frame goes out as it is.
    static_cast<void>(readBackBitmap(_opaque->context, std::move(current),
                                     _opaque->readBackBitmapFor(frame.size()), frame));
}
