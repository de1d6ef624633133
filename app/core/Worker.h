// SPDX-License-Identifier: Apache-2.0
// A thread that runs queued functions, in order, against one object.
#pragma once

#include <QMutexLocker>
#include <QRecursiveMutex>
#include <QSemaphore>
#include <QThread>

#include <functional>
#include <list>
#include <memory>
#include <optional>

class Signaler;

/** A dedicated thread with an event loop of its own that runs queued functions one at a time, in
 *  posting order, against a target object that lives on that thread.
 *
 *  running -> stopping (interruption requested: posts are refused, the queue is discarded, waiters
 *  are released) -> finished. A worker is not restarted.
 *
 *  @thread thread-safe, but a function must not call runFunctionSync on its own worker: it would
 *          wait for itself
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

    /** Emits the signal for an entry just queued; called with the lock held, returns without. */
    void wake(QMutexLocker<QRecursiveMutex> &guard);
    void drain();
    /** Releases every waiter and destroys what is queued; called with the lock held. */
    void discard();

    QObject *_target = nullptr;
    QRecursiveMutex _lock;
    Signaler *_signaler = nullptr; // non-null exactly while the event loop runs
    std::list<Entry> _queue;
    int _pending = 0; // non-waiting entries queued and not yet finished
    int _maximum = -1;
    bool _finished = false; // the loop has ended and everything queued was discarded
};
