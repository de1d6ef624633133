// SPDX-License-Identifier: Apache-2.0
// A connection to PipeWire for one GStreamer element alone.
#include "vcam/capture/linux/PipeWireSocket.h"

#include <QByteArray>
#include <QtEnvironmentVariables>

#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace lumivora {

int connectToPipeWire()
{
    // As libpipewire looks for it: a name in the runtime directory, or a whole path.
    QByteArray path = qgetenv("PIPEWIRE_REMOTE");
    if (path.isEmpty()) {
        path = "pipewire-0";
    }
    if (!path.startsWith('/')) {
        const QByteArray own = qgetenv("PIPEWIRE_RUNTIME_DIR");
        path = (own.isEmpty() ? qgetenv("XDG_RUNTIME_DIR") : own) + '/' + path;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (static_cast<std::size_t>(path.size()) >= sizeof(address.sun_path)) {
        return -1;
    }
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));

    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor >= 0 &&
        connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

} // namespace lumivora
