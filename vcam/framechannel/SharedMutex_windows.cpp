// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/SharedMutex.h"

#include "vcam/framechannel/KernelObject_windows.h"

#include <utility>

namespace lumivora {

struct SharedMutex::Handle
{
    KernelObject mutex;
};

SharedMutex::Opened SharedMutex::openOrCreate(const std::string &name)
{
    const std::wstring wideName(name.begin(), name.end());
    KernelObject mutex(::OpenMutexW(SYNCHRONIZE, FALSE, wideName.c_str()));
    if (!mutex) {
        mutex = KernelObject(::CreateMutexW(nullptr, FALSE, wideName.c_str()));
    }
    if (!mutex) {
        return {.errorCode = ::GetLastError()};
    }
    Opened opened;
    opened.mutex.reset(new SharedMutex);
    opened.mutex->_handle = std::make_unique<Handle>(std::move(mutex));
    return opened;
}

SharedMutex::~SharedMutex() = default;

bool SharedMutex::lock()
{
    const DWORD result = ::WaitForSingleObject(_handle->mutex.get(), INFINITE);
    // Abandoned means ours, too. The one word that it guards is whole at any moment.
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

void SharedMutex::unlock()
{
    ::ReleaseMutex(_handle->mutex.get());
}

} // namespace lumivora
