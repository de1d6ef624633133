// SPDX-License-Identifier: Apache-2.0
#include "tests/vcam/framechannel/RawSection.h"

#include <windows.h>

#include <algorithm>

namespace lumivora::test {

std::unique_ptr<RawSection> RawSection::open(const std::string &name)
{
    const std::wstring wideName(name.begin(), name.end());
    HANDLE handle = ::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, wideName.c_str());
    if (handle == nullptr) {
        return {};
    }
    void *data = ::MapViewOfFile(handle, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    MEMORY_BASIC_INFORMATION region = {};
    ::VirtualQuery(data, &region, sizeof(region));
    std::unique_ptr<RawSection> section(new RawSection);
    section->_handle = handle;
    section->_bytes = {static_cast<std::byte *>(data), region.RegionSize};
    return section;
}

std::unique_ptr<RawSection> RawSection::make(const std::string &name,
                                             std::span<const std::byte> content)
{
    const std::wstring wideName(name.begin(), name.end());
    HANDLE handle = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                         static_cast<DWORD>(content.size()), wideName.c_str());
    std::unique_ptr<RawSection> section = handle != nullptr ? open(name) : nullptr;
    ::CloseHandle(handle);
    if (section) {
        std::copy(content.begin(), content.end(), section->_bytes.begin());
    }
    return section;
}

RawSection::~RawSection()
{
    ::UnmapViewOfFile(_bytes.data());
    ::CloseHandle(_handle);
}

} // namespace lumivora::test
