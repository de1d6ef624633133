// SPDX-License-Identifier: Apache-2.0
#include "tests/vcam/framechannel/RawSection.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace lumivora::test {

namespace {

std::string pathOf(const std::string &name)
{
    return qgetenv("XDG_RUNTIME_DIR").toStdString() + "/lumivora-control/" + name;
}

} // namespace

std::unique_ptr<RawSection> RawSection::open(const std::string &name)
{
    const int file = ::open(pathOf(name).c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    struct stat info = {};
    ::fstat(file, &info);
    std::unique_ptr<RawSection> section(new RawSection);
    if (info.st_size > 0) {
        const auto size = static_cast<std::size_t>(info.st_size);
        void *data = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        section->_bytes = {static_cast<std::byte *>(data), size};
    }
    ::close(file);
    return section;
}

std::unique_ptr<RawSection> RawSection::make(const std::string &name,
                                             std::span<const std::byte> content)
{
    const std::string path = pathOf(name);
    ::mkdir(path.substr(0, path.rfind('/')).c_str(), 0700);
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool sized = ::ftruncate(file, static_cast<off_t>(content.size())) == 0;
    ::close(file);
    std::unique_ptr<RawSection> section = sized ? open(name) : nullptr;
    if (section) {
        std::copy(content.begin(), content.end(), section->_bytes.begin());
    }
    return section;
}

RawSection::~RawSection()
{
    if (!_bytes.empty()) {
        ::munmap(_bytes.data(), _bytes.size());
    }
}

} // namespace lumivora::test
