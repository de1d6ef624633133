// SPDX-License-Identifier: Apache-2.0
// Sees to it that the virtual devices are there.
#pragma once

class QObject;

namespace lumivora {

/** Starts the user service that is the virtual camera when it is not running, and starts it again
 *  whenever it has gone, for as long as the context lives. On Windows the devices are drivers,
 *  installed apart and started by the system: there is nothing to keep running.
 *  @thread thread-bound: the context's thread */
void keepVirtualDevicesRunning(QObject *context);

/** Whether the virtual camera is not listed yet only because the service was started moments ago
 *  (at most 10 s). @thread thread-bound: that of keepVirtualDevicesRunning() */
[[nodiscard]] bool areVirtualDevicesStarting();

} // namespace lumivora
