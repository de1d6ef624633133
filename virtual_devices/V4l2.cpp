// SPDX-License-Identifier: Apache-2.0
// The calls to Video4Linux devices that the loopback output makes, for tests to replace.
#include "virtual_devices/V4l2.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace lumivora {

namespace {

namespace fs = std::filesystem;

/** What a folder holds; nothing when it cannot be read. */
std::vector<fs::path> entries(const fs::path &folder)
{
    std::vector<fs::path> result;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        result.push_back(entry->path());
    }
    std::ranges::sort(result);
    return result;
}

} // namespace

std::vector<std::string> V4l2::devicesNamed(const std::string &name)
{
    std::vector<std::string> result;
    for (const fs::path &device : entries("/sys/class/video4linux")) {
        std::ifstream file(device / "name");
        std::string line;
        if (std::getline(file, line) && line == name) {
            result.push_back("/dev/" + device.filename().string());
        }
    }
    return result;
}

int V4l2::open(const std::string &path)
{
    return ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

void V4l2::close(int device)
{
    ::close(device);
}

int V4l2::control(int device, unsigned long request, void *argument)
{
    return ioctl(device, request, argument);
}

ssize_t V4l2::write(int device, std::span<const std::uint8_t> bytes)
{
    return ::write(device, bytes.data(), bytes.size());
}

int V4l2::otherOpeners(const std::string &path)
{
    const std::string own = std::to_string(getpid());
    int count = 0;
    for (const fs::path &process : entries("/proc")) {
        const std::string id = process.filename().string();
        if (id == own || !std::ranges::all_of(id, [](char c) { return c >= '0' && c <= '9'; })) {
            continue;
        }
        const auto descriptors = entries(process / "fd");
        count += std::ranges::any_of(descriptors, [&path](const fs::path &descriptor) {
            std::error_code error;
            return fs::read_symlink(descriptor, error) == path;
        });
    }
    return count;
}

} // namespace lumivora
