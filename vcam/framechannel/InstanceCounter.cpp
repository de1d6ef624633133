// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/InstanceCounter.h"

#include "vcam/framechannel/SharedMutex.h"
#include "vcam/framechannel/SharedSection.h"

#include <cstring>
#include <iostream>
#include <utility>

namespace lumivora {

namespace {

// Without a backslash after "Global", on purpose: the virtual camera uses exactly these names.
constexpr auto kSectionName = "GlobalLumivoraInstanceCounterSM";
constexpr auto kMutexName = "GlobalLumivoraInstanceCounterMux";

void report(const char *what, std::uint32_t errorCode)
{
    std::cerr << what << errorCode << '\n';
}

} // namespace

struct InstanceCounter::Objects
{
    std::unique_ptr<SharedSection> section;
    std::unique_ptr<SharedMutex> mutex;
};

InstanceCounter::InstanceCounter() = default;
InstanceCounter::~InstanceCounter() = default;

bool InstanceCounter::open()
{
    // A section made here starts at 0 without a store, which could undo a client counted since.
    SharedSection::Opened section =
        SharedSection::openOrCreate(kSectionName, sizeof(std::uint32_t));
    if (section.failure == SharedSection::Failure::Create) {
        report("Could not create file mapping object: ", section.errorCode);
        return false;
    }
    if (section.failure == SharedSection::Failure::Map) {
        report("Could not map view of file: ", section.errorCode);
        return false;
    }
    SharedMutex::Opened mutex = SharedMutex::openOrCreate(kMutexName);
    if (!mutex.mutex) {
        report("Could not create mutex: ", mutex.errorCode);
        return false;
    }
    _objects = std::make_unique<Objects>(std::move(section.section), std::move(mutex.mutex));
    return true;
}

bool InstanceCounter::read(std::uint32_t &count) const
{
    if (!_objects || !_objects->mutex->lock()) {
        return false;
    }
    std::memcpy(&count, _objects->section->data(), sizeof(count));
    _objects->mutex->unlock();
    return true;
}

bool InstanceCounter::write(std::uint32_t count)
{
    if (!_objects || !_objects->mutex->lock()) {
        return false;
    }
    std::memcpy(_objects->section->data(), &count, sizeof(count));
    _objects->mutex->unlock();
    return true;
}

} // namespace lumivora
