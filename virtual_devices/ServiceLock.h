// SPDX-License-Identifier: Apache-2.0
// Lets one virtual device service run for each user, and tells others that it does.
#pragma once

#include "vcam/framechannel/FileDescriptor.h"

namespace lumivora {

/** Whether the user's virtual device service runs. Asks only; takes nothing.
 *  @thread thread-safe */
[[nodiscard]] bool isVirtualDevicesServiceRunning();

/** Held by the service for as long as it runs. The system lets go of it when the process ends,
 *  however it ends, so that a dead service never blocks the next one.
 *
 *  @thread reentrant */
class ServiceLock
{
public:
    ServiceLock();
    ~ServiceLock();

    ServiceLock(const ServiceLock &) = delete;
    ServiceLock &operator=(const ServiceLock &) = delete;

    /** @return false when another process has the lock or the runtime directory cannot be used */
    [[nodiscard]] bool acquire();

private:
    FileDescriptor _file;
};

} // namespace lumivora
