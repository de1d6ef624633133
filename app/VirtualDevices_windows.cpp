// SPDX-License-Identifier: Apache-2.0
#include "app/VirtualDevices.h"

namespace lumivora {

void keepVirtualDevicesRunning(QObject * /*context*/) {}

bool areVirtualDevicesStarting()
{
    return false;
}

} // namespace lumivora
