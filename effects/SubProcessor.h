// SPDX-License-Identifier: Apache-2.0
// The base of every video effect stage.
#pragma once

#include "app/core/CameraSetting.h"
#include "app/core/Clock.h"
#include "direct2d/ComPtr.h"

#include <QObject>
#include <QRecursiveMutex>

#include <d2d1_1.h>

#include <memory>

class Worker;

/** One effect of the pipeline: takes a bitmap of the frame and gives a bitmap back.
 *
 *  A stage may do its work less often than it is called: between two runs it gives the previous
 *  result, which then lags its input.
 *
 *  A stage lives on the thread of its own worker, and so does what is posted to it. A derived
 *  stage that has state of its own calls stopJobs() first in its destructor.
 *
 *  @thread processImage() is thread-bound to the pipeline's thread, as the context is;
 *          processImageAsync() and lastResult() are thread-safe
 */
class SubProcessor : public QObject
{
    Q_OBJECT

public:
    using Bitmap = lumivora::ComPtr<ID2D1Bitmap1>;

    class OpaqueBase;

    /** @param clock  what the rate limit goes by */
    explicit SubProcessor(lumivora::Clock clock = lumivora::systemClock());
    ~SubProcessor() override;

    /** Runs the stage, if it is due.
     *  @param input   the frame; may be empty
     *  @param width   of the frame, pixels
     *  @param height  of the frame, pixels
     *  @param setting the value and range of the stage's effect
     *  @return the stage's last result; empty before the first run. The base returns its input */
    virtual Bitmap processImage(Bitmap input, const float &width, const float &height,
                                const CameraSetting &setting);

    /** Posts processImage() to the stage's worker and does not wait for it. The caller must not
     *  draw with the same context meanwhile.
     *  @return the result of the last completed run, empty before the first */
    virtual Bitmap processImageAsync(Bitmap input, const float &width, const float &height,
                                     const CameraSetting &setting);

    /** Deliberately without effect or caller: it keeps its place among the virtual operations.
     *  @return empty */
    virtual Bitmap processImages(Bitmap first, Bitmap second);

    /** A new reference to what the stage produced last; empty before the first run. */
    virtual Bitmap lastResult();

protected:
    /** Whether the stage is due; if so, the run counts from now. */
    [[nodiscard]] bool takeRun();

    /** Keeps a run's bitmap as the last result. */
    void storeResult(const Bitmap &bitmap);

    /** Waits for the job that is running, and drops the others. Idempotent. */
    void stopJobs();

    std::shared_ptr<OpaqueBase> _opaque; // made by the derived constructor
    std::shared_ptr<Worker> _worker;
    QRecursiveMutex _resultMutex; // guards the last result
    qint64 _lastRunMs = 0;        // milliseconds since the epoch
    qint64 _maxRunsPerSecond = 1000;

private:
    lumivora::Clock _clock;
};
