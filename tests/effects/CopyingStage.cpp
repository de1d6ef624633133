// SPDX-License-Identifier: Apache-2.0
#include "tests/effects/CopyingStage.h"

#include "effects/BitmapTransfer.h"
#include "effects/SubProcessor_p.h"

#include <utility>

CopyingStage::CopyingStage(lumivora::ComPtr<ID2D1DeviceContext> context, lumivora::Clock clock,
                           qint64 maxRunsPerSecond)
    : SubProcessor(std::move(clock))
{
    _opaque = std::make_shared<OpaqueBase>(this, std::move(context));
    _maxRunsPerSecond = maxRunsPerSecond;
}

CopyingStage::~CopyingStage()
{
    stopJobs();
}

SubProcessor::Bitmap CopyingStage::processImage(Bitmap input, const float &width,
                                                const float &height, const CameraSetting &setting)
{
    if (input && takeRun()) {
        ++runs;
        lastSetting = setting;
        Bitmap copy =
            lumivora::createBitmapFromBuffer(_opaque->context, nullptr, static_cast<quint32>(width),
                                             static_cast<quint32>(height), false);
        if (copy && SUCCEEDED(copy->CopyFromBitmap(nullptr, input.get(), nullptr))) {
            storeResult(copy);
        }
    }
    return lastResult();
}
