// SPDX-License-Identifier: Apache-2.0
// The effects pipeline: turns a captured frame into the one that is delivered.
#pragma once

#include <QObject>

#include <memory>

class BaseSettings;
class QImage;

namespace lumivora {
struct PipelineParts;
}

/** Owns the Direct2D device and one instance of each effect stage, and runs a frame through the
 *  stages that the settings ask for: one upload, the stages in their order, one read-back.
 *
 *  @thread reentrant: processFrame() is called from one thread at a time. Construction and
 *          destruction may happen on another thread
 */
class PostProcessor : public QObject
{
    Q_OBJECT

public:
    /** Creates the device and the stages. Without a device, frames pass unchanged.
     *  @param settings  borrowed; read afresh for every frame */
    explicit PostProcessor(BaseSettings *settings, QObject *parent = nullptr);
    PostProcessor(BaseSettings *settings, QObject *parent, const lumivora::PipelineParts &parts);
    ~PostProcessor() override;

    /** Processes one frame in place.
     *
     *  With nothing to do, or when something fails, the frame stays as it is, byte for byte.
     *  Otherwise it is a 32-bit image of the same size afterwards: one of 24 bits, as some
     *  cameras deliver, is replaced by one in QImage::Format_ARGB32.
     *
     *  @param frame  may be null. 32-bit pixels are B, G, R, A in memory, as in
     *                QImage::Format_ARGB32 and Format_RGB32; the stages take the colours for
     *                premultiplied */
    void processFrame(QImage &frame);

Q_SIGNALS:
    // For those who edit the settings; the frames do not depend on them.
    void onSkinTone(int value, bool autoMode);
    void onBackgroundBlur(int value, bool autoMode);
    void onCameraRotation(int value, bool autoMode);
    void onFineCameraRotation(int value, bool autoMode);

private:
    class Opaque;

    std::shared_ptr<Opaque> _opaque;
};
