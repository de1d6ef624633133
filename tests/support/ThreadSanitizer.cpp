// SPDX-License-Identifier: Apache-2.0
// Shows the thread sanitizer how the framework synchronises. Its libraries are not instrumented, so
// that what they order would be reported as races. Linked into the tests of that build only.
#include <QDeadlineTimer>
#include <QRecursiveMutex>
#include <QSemaphore>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {

/** The framework's own function behind one that stands in front of it here. */
template <typename Function>
Function next(const char *mangledName)
{
    void *const address = dlsym(RTLD_NEXT, mangledName);
    Q_ASSERT(address != nullptr);
    return reinterpret_cast<Function>(address);
}

} // namespace

bool QRecursiveMutex::tryLock(QDeadlineTimer timer) noexcept
{
    static const auto original = next<bool (*)(QRecursiveMutex *, QDeadlineTimer)>(
        "_ZN15QRecursiveMutex7tryLockE14QDeadlineTimer");
    const bool locked = original(this, timer);
    if (locked) {
        __tsan_acquire(this);
    }
    return locked;
}

void QRecursiveMutex::unlock() noexcept
{
    static const auto original = next<void (*)(QRecursiveMutex *)>("_ZN15QRecursiveMutex6unlockEv");
    __tsan_release(this);
    original(this);
}

void QSemaphore::acquire(int n)
{
    static const auto original = next<void (*)(QSemaphore *, int)>("_ZN10QSemaphore7acquireEi");
    original(this, n);
    __tsan_acquire(this);
}

void QSemaphore::release(int n)
{
    static const auto original = next<void (*)(QSemaphore *, int)>("_ZN10QSemaphore7releaseEi");
    __tsan_release(this);
    original(this, n);
}

/** What nothing here can show: the framework's own threads and what they share with GLib. */
extern "C" Q_DECL_EXPORT const char *__tsan_default_suppressions()
{
    return "race:libglib-2.0.so\n"
           "race:QWaitCondition::~QWaitCondition\n";
}
