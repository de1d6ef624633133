// SPDX-License-Identifier: Apache-2.0
// Decides what the virtual camera shows: frames, the last of them, or the placeholder.
#include "virtual_devices/FrameFeeder.h"

#include <algorithm>
#include <utility>

namespace lumivora {

using std::chrono::milliseconds;

FrameFeeder::FrameFeeder(Environment environment)
    : _environment(std::move(environment)), _frame(kCameraBytes)
{}

void FrameFeeder::step()
{
    if (!_environment.isWatched()) {
        // A frame kept from now would be an old one when somebody looks again.
        _hasFrame = false;
        _environment.sleep(kRepeat);
        return;
    }
    attach();
    const milliseconds due = _shown + kRepeat - _environment.clock();
    const milliseconds timeout = std::clamp(due, milliseconds{1}, kRepeat);
    if (!_source) {
        _environment.sleep(timeout);
    } else if (_source->wait(timeout)) {
        showFrame();
    }
    if (_environment.clock() - _shown >= kRepeat) {
        showAgain();
    }
}

void FrameFeeder::attach()
{
    if (_sourceGaveFrame) {
        _lastSeen = _environment.clock();
    }
    if (_source && !_source->isAlive()) {
        _source.reset();
    }
    if (!_source) {
        _source = _environment.open();
        _sourceGaveFrame = false;
    }
}

void FrameFeeder::showFrame()
{
    _hasFrame = _source->copy(_frame);
    if (_hasFrame) {
        _environment.show(_frame);
        _shown = _environment.clock();
        _sourceGaveFrame = true;
    }
}

void FrameFeeder::showAgain()
{
    if (!_sourceGaveFrame && _environment.clock() - _lastSeen >= kGrace) {
        _hasFrame = false;
    }
    _environment.show(_hasFrame ? std::span<const std::byte>(_frame) : _environment.placeholder());
    _shown = _environment.clock();
}

} // namespace lumivora
