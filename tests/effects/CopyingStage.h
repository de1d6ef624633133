// SPDX-License-Identifier: Apache-2.0
// A stage for tests: rate-limited, and its result is a copy of its input.
#pragma once

#include "effects/SubProcessor.h"

#include <atomic>

/** In the global namespace like every class with a meta-object. */
class CopyingStage : public SubProcessor
{
    Q_OBJECT

public:
    CopyingStage(lumivora::ComPtr<ID2D1DeviceContext> context, lumivora::Clock clock,
                 qint64 maxRunsPerSecond);
    ~CopyingStage() override;

    Bitmap processImage(Bitmap input, const float &width, const float &height,
                        const CameraSetting &setting) override;

    [[nodiscard]] qint64 maxRunsPerSecond() const { return _maxRunsPerSecond; }

    std::atomic<int> runs = 0;
    CameraSetting lastSetting;
};
