// SPDX-License-Identifier: Apache-2.0
// Lets one virtual device service run for each user, and tells others that it does.
#include "virtual_devices/ServiceLock.h"

#include "vcam/framechannel/RuntimeDirectory.h"

#include <fcntl.h>

#include <utility>

namespace lumivora {

namespace {

constexpr const char *kFileName = "virtual-devices.lock";

struct flock wholeFile(short type)
{
    struct flock lock{};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

bool isVirtualDevicesServiceRunning()
{
    const auto directory = RuntimeDirectory::open();
    if (!directory) {
        return false;
    }
    const FileDescriptor file(
        openat(directory->descriptor(), kFileName, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct flock lock = wholeFile(F_RDLCK);
    return file && fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

ServiceLock::ServiceLock() = default;
ServiceLock::~ServiceLock() = default;

bool ServiceLock::acquire()
{
    const auto directory = RuntimeDirectory::open();
    if (!directory) {
        return false;
    }
    FileDescriptor file(openat(directory->descriptor(), kFileName,
                               O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    struct flock lock = wholeFile(F_WRLCK);
    if (!file || fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        return false;
    }
    _file = std::move(file);
    return true;
}

} // namespace lumivora
