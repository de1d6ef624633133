// SPDX-License-Identifier: Apache-2.0
// A thread that runs queued functions, in order, against one object.
#pragma once

#include <QMutexLocker>
#include <QRecursiveMutex>
#include <QSemaphore>
#include <QThread>

#include <atomic>
#include <functional>
#include <list>
#include <memory>

class Signaler;

/** A dedicated thread with an event loop of its own that runs queued functions one at a time, in
 *  posting order, against a target object that lives on that thread.
 *
 *  running -> stopping (interruption requested: posts are refused, the queue is discarded, waiters
 *  are released) -> finished. A worker is not restarted. Whoever waits is released at the latest
 *  when stop() returns; from then on nobody waits any more.
 *
 *  A post made on the worker's own thread, by a timer of the target for instance, runs the queue at
 *  once. A function must not post synchronously to its own worker: what is queued before it would
 *  run in its midst.
 *
 *  @thread thread-safe, but not to be destroyed on its own thread
 */
class Worker : public QThread
{
    Q_OBJECT

public:
    /** Receives the target given to create(), null when there is none. */
    using Function = std::function<void(QObject *)>;

    /** Starts a worker; returns once it accepts and processes work.
     *  @param target    moved to the new thread; not owned; may be null
     *  @param moveSelf  move the worker object to its own thread as well
     */
    [[nodiscard]] static std::shared_ptr<Worker> create(QObject *target, bool moveSelf);

    ~Worker() override;

    /** Posts without waiting.
     *  @return false when the worker is stopping or the bound of setMaxQueueSize() is reached: the
     *          function is then destroyed without having run
     */
    bool runFunctionAsync(Function function);

    /** Posts and waits until the function has run, or was discarded by a stop. Waiting posts are
     *  neither counted nor bounded. After a stop it returns at once.
     */
    void runFunctionSync(Function function);

    /** runFunctionSync() with a result; a value-initialised T when the function was not run. */
    template <typename T>
    T runFunctionSyncEx(std::function<T(QObject *)> function)
    {
        T result{};
        runFunctionSync([&](QObject *target) { result = function(target); });
        return result;
    }

    /** Bounds how many non-waiting functions may be queued or running; 0 or less: no bound. */
    void setMaxQueueSize(int maximum);

    /** Asks the thread to finish, quits its event loop and waits for its end without time-out. */
    void stop();

Q_SIGNALS:
    void update();

protected:
    void run() override;

private:
    struct Entry
    {
        Function function;
        QSemaphore *done = nullptr; // of a waiting caller; null for a post without waiting
    };

    Worker(QObject *target, bool moveSelf);

    /** Whether a stop was asked for; unlike the thread's own flag, also after its end. */
    [[nodiscard]] bool isStopping() const;

    /** Emits the signal for an entry just queued; called with the lock held, returns without. */
    void wake(QMutexLocker<QRecursiveMutex> &guard);
    void drain() noexcept;
    /** Releases every waiter and destroys what is queued; called with the lock held. */
    void discard();

    QObject *_target = nullptr;
    QRecursiveMutex _lock;
    Signaler *_signaler = nullptr; // non-null exactly while the event loop runs
    std::list<Entry> _queue;
    int _pending = 0; // non-waiting entries queued and not yet finished
    int _maximum = -1;
    std::atomic<bool> _stopping{false};
};
