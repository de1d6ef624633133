// SPDX-License-Identifier: Apache-2.0
// The wake-up call of a worker thread.
#pragma once

#include <QObject>

/** One signal without arguments; emitting it from any thread wakes the event loop of the thread
 *  on which the object was made.
 *  @thread thread-safe: signal() may be emitted from any thread while the object lives
 */
class Signaler : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

Q_SIGNALS:
    void signal();
};
