// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/RuntimeDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace lumivora {

namespace {

constexpr auto kName = "lumivora-control";

bool isOurs(const std::string &folder)
{
    struct stat info = {};
    return ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
           info.st_uid == ::geteuid();
}

std::string choosePath()
{
    // A variable left over from another user (sudo) must not make us leave files of ours there.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment while the product runs
    const char *configured = std::getenv("XDG_RUNTIME_DIR");
    if (configured != nullptr && *configured == '/' && isOurs(configured)) {
        return std::string(configured) + '/' + kName;
    }
    const std::string user = std::to_string(::geteuid());
    const std::string runtime = "/run/user/" + user;
    if (isOurs(runtime)) {
        return runtime + '/' + kName;
    }
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    return (error ? std::string("/tmp") : temporary.string()) + '/' + kName + '-' + user;
}

} // namespace

RuntimeDirectory::RuntimeDirectory(FileDescriptor descriptor, std::string path)
    : _descriptor(std::move(descriptor)), _path(std::move(path))
{}

std::optional<RuntimeDirectory> RuntimeDirectory::open()
{
    std::string path = choosePath();
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        return {};
    }
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info = {};
    if (!folder || ::fstat(folder.get(), &info) != 0) {
        return {};
    }
    if (info.st_uid != ::geteuid() || (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        errno = EACCES;
        return {};
    }
    return RuntimeDirectory(std::move(folder), std::move(path));
}

RuntimeDirectory::Lock::Lock(const RuntimeDirectory &directory)
    : _descriptor(directory.descriptor())
{
    while (::flock(_descriptor, LOCK_EX) != 0 && errno == EINTR) {
    }
}

RuntimeDirectory::Lock::~Lock()
{
    ::flock(_descriptor, LOCK_UN);
}

} // namespace lumivora
