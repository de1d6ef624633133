// SPDX-License-Identifier: Apache-2.0
// Counts the clients of a node from what PipeWire tells of links and nodes.
#include "virtual_devices/ClientTracker.h"

#include <algorithm>

namespace lumivora {

void ClientTracker::addLink(std::uint32_t link, std::uint32_t outputNode, std::uint32_t inputNode)
{
    _links.insert_or_assign(link, Link{outputNode, inputNode});
}

void ClientTracker::setRunning(std::uint32_t node, bool running)
{
    if (running) {
        _running.insert(node);
    } else {
        _running.erase(node);
    }
}

void ClientTracker::remove(std::uint32_t id)
{
    _links.erase(id);
    _running.erase(id);
}

void ClientTracker::clear()
{
    *this = ClientTracker();
}

std::set<std::uint32_t> ClientTracker::peers() const
{
    std::set<std::uint32_t> result;
    for (const auto &[id, link] : _links) {
        if (link.output == _source) {
            result.insert(link.input);
        }
    }
    return result;
}

int ClientTracker::count() const
{
    const auto linked = peers();
    return static_cast<int>(std::ranges::count_if(
        linked, [this](std::uint32_t node) { return _running.contains(node); }));
}

} // namespace lumivora
