// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/SharedMutex.h"

#include "vcam/framechannel/SharedSection.h"

#include <pthread.h>

#include <cerrno>
#include <utility>

namespace lumivora {

struct SharedMutex::Handle
{
    std::unique_ptr<SharedSection> section;

    [[nodiscard]] pthread_mutex_t *mutex() const
    {
        return reinterpret_cast<pthread_mutex_t *>(section->data());
    }
};

namespace {

void initialiseMutex(std::byte *data)
{
    pthread_mutexattr_t attributes;
    ::pthread_mutexattr_init(&attributes);
    ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    ::pthread_mutex_init(reinterpret_cast<pthread_mutex_t *>(data), &attributes);
    ::pthread_mutexattr_destroy(&attributes);
}

} // namespace

SharedMutex::Opened SharedMutex::openOrCreate(const std::string &name)
{
    SharedSection::Opened section =
        SharedSection::openOrCreate(name, sizeof(pthread_mutex_t), initialiseMutex);
    if (!section.section) {
        return {.errorCode = section.errorCode};
    }
    Opened opened;
    opened.mutex.reset(new SharedMutex);
    opened.mutex->_handle = std::make_unique<Handle>(std::move(section.section));
    return opened;
}

SharedMutex::~SharedMutex() = default;

bool SharedMutex::lock()
{
    const int result = ::pthread_mutex_lock(_handle->mutex());
    if (result == EOWNERDEAD) {
        // The one word that it guards is whole at any moment: there is nothing to repair.
        return ::pthread_mutex_consistent(_handle->mutex()) == 0;
    }
    return result == 0;
}

void SharedMutex::unlock()
{
    ::pthread_mutex_unlock(_handle->mutex());
}

} // namespace lumivora
