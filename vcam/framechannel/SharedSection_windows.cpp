// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/SharedSection.h"

#include "vcam/framechannel/KernelObject_windows.h"

#include <algorithm>
#include <thread>

namespace lumivora {

struct SharedSection::Handle
{
    KernelObject section;

    /** @return without a section on failure */
    static Opened map(KernelObject section, DWORD access, std::size_t bytes);
};

namespace {

KernelObject createPageFileSection(const std::wstring &name, std::size_t bytes)
{
    const auto size = static_cast<std::uint64_t>(bytes);
    return KernelObject(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                             static_cast<DWORD>(size >> 32),
                                             static_cast<DWORD>(size), name.c_str()));
}

} // namespace

SharedSection::Opened SharedSection::Handle::map(KernelObject section, DWORD access,
                                                 std::size_t bytes)
{
    void *data = ::MapViewOfFile(section.get(), access, 0, 0, bytes);
    if (data == nullptr) {
        return {.failure = Failure::Map, .errorCode = ::GetLastError()};
    }
    MEMORY_BASIC_INFORMATION region = {};
    ::VirtualQuery(data, &region, sizeof(region));
    Opened opened;
    opened.section.reset(new SharedSection);
    opened.section->_data = static_cast<std::byte *>(data);
    opened.section->_size = bytes != 0 ? bytes : region.RegionSize;
    opened.section->_handle = std::make_unique<Handle>(std::move(section));
    return opened;
}

std::unique_ptr<SharedSection> SharedSection::create(const std::string &name, std::size_t bytes,
                                                     const Initialise &initialise)
{
    const std::wstring wideName(name.begin(), name.end());
    if (KernelObject(::OpenFileMappingW(FILE_MAP_READ, FALSE, wideName.c_str()))) {
        return {};
    }
    KernelObject created = createPageFileSection(wideName, bytes);
    // Another producer may have been quicker since the look above: its section is not ours.
    if (!created || ::GetLastError() == ERROR_ALREADY_EXISTS) {
        return {};
    }
    Opened opened = Handle::map(std::move(created), FILE_MAP_ALL_ACCESS, bytes);
    if (opened.section) {
        initialise(opened.section->_data);
    }
    return std::move(opened.section);
}

SharedSection::Opened SharedSection::openOrCreate(const std::string &name, std::size_t bytes,
                                                  const Initialise &initialise)
{
    const std::wstring wideName(name.begin(), name.end());
    KernelObject section(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, wideName.c_str()));
    bool created = false;
    if (!section) {
        section = createPageFileSection(wideName, bytes);
        if (!section) {
            return {.failure = Failure::Create, .errorCode = ::GetLastError()};
        }
        created = ::GetLastError() != ERROR_ALREADY_EXISTS;
    }
    Opened opened = Handle::map(std::move(section), FILE_MAP_ALL_ACCESS, bytes);
    if (opened.section && created) {
        opened.created = true;
        if (initialise) {
            initialise(opened.section->_data);
        }
    }
    return opened;
}

std::unique_ptr<SharedSection> SharedSection::openReadOnly(const std::string &name)
{
    const std::wstring wideName(name.begin(), name.end());
    KernelObject section(::OpenFileMappingW(FILE_MAP_READ, FALSE, wideName.c_str()));
    if (!section) {
        return {};
    }
    return Handle::map(std::move(section), FILE_MAP_READ, 0).section;
}

SharedSection::~SharedSection()
{
    ::UnmapViewOfFile(_data);
}

bool SharedSection::ownerAlive() const
{
    return true;
}

bool SharedSection::isCurrent() const
{
    return true; // the name cannot go to another section while this one is open
}

void SharedSection::wake(std::atomic<std::uint32_t> & /*word*/) {}

void SharedSection::waitWhileEqual(const std::atomic<std::uint32_t> &word, std::uint32_t value,
                                   std::chrono::milliseconds timeout)
{
    // The system's wait on an address does not reach into other processes.
    if (word.load(std::memory_order_acquire) == value) {
        std::this_thread::sleep_for(std::min(timeout, std::chrono::milliseconds(1)));
    }
}

} // namespace lumivora
