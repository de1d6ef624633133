// SPDX-License-Identifier: Apache-2.0
#include "app/core/Worker.h"

#include "app/core/Signaler.h"

#include <QLoggingCategory>

#include <utility>

namespace {

Q_LOGGING_CATEGORY(lcWorker, "lumivora.worker")

constexpr unsigned long kStartPollMs = 5;

} // namespace

std::shared_ptr<Worker> Worker::create(QObject *target, bool moveSelf)
{
    std::shared_ptr<Worker> worker(new Worker(target, moveSelf));
    worker->start(QThread::InheritPriority);
    const auto accepts = [&worker] {
        const QMutexLocker guard(&worker->_lock);
        return worker->_signaler != nullptr;
    };
    while (!accepts()) {
        QThread::msleep(kStartPollMs);
    }
    worker->runFunctionSync([](QObject *) {});
    return worker;
}

Worker::Worker(QObject *target, bool moveSelf) : _target(target)
{
    if (moveSelf) {
        moveToThread(this);
    }
    if (_target != nullptr) {
        _target->moveToThread(this);
    }
}

Worker::~Worker()
{
    stop();
}

void Worker::stop()
{
    _stopping = true;
    requestInterruption();
    quit();
    wait();
    // What was posted after the last turn of the loop: nobody else would release who waits for it.
    const QMutexLocker guard(&_lock);
    discard();
}

bool Worker::isStopping() const
{
    // The framework forgets the request once the thread has ended.
    return _stopping || isInterruptionRequested();
}

void Worker::setMaxQueueSize(int maximum)
{
    const QMutexLocker guard(&_lock);
    _maximum = maximum;
}

bool Worker::runFunctionAsync(Function function)
{
    if (isStopping()) {
        return false;
    }
    QMutexLocker guard(&_lock);
    if (_maximum > 0 && _pending + 1 > _maximum) {
        return false;
    }
    if (_signaler == nullptr) {
        qCDebug(lcWorker) << "dropping function due to invalid signaler!";
        return true;
    }
    ++_pending;
    _queue.push_back({std::move(function), nullptr});
    wake(guard);
    return true;
}

void Worker::runFunctionSync(Function function)
{
    if (isStopping()) {
        return;
    }
    QSemaphore done;
    QMutexLocker guard(&_lock);
    if (_signaler == nullptr) {
        // The loop has ended and released everyone who waited: nobody would release this caller.
        qCDebug(lcWorker) << "dropping function due to invalid signaler!";
        return;
    }
    _queue.push_back({std::move(function), &done});
    wake(guard);
    done.acquire();
}

void Worker::wake(QMutexLocker<QRecursiveMutex> &guard)
{
    if (QThread::currentThread() == this) {
        // The emission runs the queue right here. Not under the lock: a function may wait for a
        // thread that is about to post. The signaler cannot go away, its thread is this one.
        Signaler *signaler = _signaler;
        guard.unlock();
        Q_EMIT signaler->signal();
        return;
    }
    Q_EMIT _signaler->signal();
    guard.unlock();
}

void Worker::run()
{
    Signaler signaler;
    connect(&signaler, &Signaler::signal, &signaler, [this] { drain(); });
    {
        const QMutexLocker guard(&_lock);
        _signaler = &signaler;
    }
    exec();
    const QMutexLocker guard(&_lock);
    _signaler = nullptr;
}

void Worker::drain() noexcept
{
    while (!isStopping()) {
        Entry entry;
        {
            const QMutexLocker guard(&_lock);
            if (_queue.empty()) {
                break;
            }
            entry = std::move(_queue.front());
            _queue.pop_front();
        }
        entry.function(_target);
        if (entry.done != nullptr) {
            entry.done->release();
        } else {
            const QMutexLocker guard(&_lock);
            --_pending;
        }
    }
    if (isStopping()) {
        const QMutexLocker guard(&_lock);
        discard();
    }
}

void Worker::discard()
{
    for (const Entry &entry : _queue) {
        if (entry.done != nullptr) {
            entry.done->release();
        }
    }
    _queue.clear();
    _pending = 0;
}
