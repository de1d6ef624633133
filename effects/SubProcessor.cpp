// SPDX-License-Identifier: Apache-2.0
#include "effects/SubProcessor.h"

#include "app/core/Worker.h"
#include "effects/SubProcessor_p.h"

#include <QMutexLocker>

#include <utility>

namespace {

constexpr qint64 kMsPerSecond = 1000;

} // namespace

SubProcessor::SubProcessor(lumivora::Clock clock)
    : _worker(Worker::create(this, true)), _clock(std::move(clock))
{}

SubProcessor::~SubProcessor()
{
    stopJobs();
}

void SubProcessor::stopJobs()
{
    _worker->stop();
}

SubProcessor::Bitmap SubProcessor::processImage(Bitmap input, const float & /*width*/,
                                                const float & /*height*/,
                                                const CameraSetting & /*setting*/)
{
    return input;
}

SubProcessor::Bitmap SubProcessor::processImageAsync(Bitmap input, const float &width,
                                                     const float &height,
                                                     const CameraSetting &setting)
{
    // Before the post, or a quick worker would make it the result of this very run.
    Bitmap previous = lastResult();
    // The worker discards what it has not begun before the stage goes.
    _worker->runFunctionAsync([this, input = std::move(input), width, height, setting](QObject *) {
        processImage(input, width, height, setting);
    });
    return previous;
}

SubProcessor::Bitmap SubProcessor::processImages(Bitmap /*first*/, Bitmap /*second*/)
{
    return {};
}

SubProcessor::Bitmap SubProcessor::lastResult()
{
    const QMutexLocker guard(&_resultMutex);
    return _opaque ? _opaque->lastResult : Bitmap();
}

bool SubProcessor::takeRun()
{
    const qint64 now = _clock();
    const qint64 elapsedMs = now - _lastRunMs;
    // A clock that was set back must not stop the stage until the old time comes round again.
    if (elapsedMs >= 0 && elapsedMs < kMsPerSecond / _maxRunsPerSecond) {
        return false;
    }
    _lastRunMs = now;
    return true;
}

void SubProcessor::storeResult(const Bitmap &bitmap)
{
    const QMutexLocker guard(&_resultMutex);
    if (_opaque->lastResult != bitmap) {
        _opaque->lastResult = bitmap;
    }
}
