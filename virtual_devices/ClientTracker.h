// SPDX-License-Identifier: Apache-2.0
// Counts the clients of a node from what PipeWire tells of links and nodes.
#pragma once

#include <cstdint>
#include <map>
#include <set>

namespace lumivora {

/** Knows which nodes are linked to one output node and which of them run.
 *
 *  A link alone is no client: programs link while they enumerate cameras, and a paused one keeps
 * its link. Two links of one node are one client.
 *
 *  @thread reentrant */
class ClientTracker
{
public:
    /** The node whose clients are counted. */
    void setSource(std::uint32_t node) { _source = node; }

    void addLink(std::uint32_t link, std::uint32_t outputNode, std::uint32_t inputNode);
    void setRunning(std::uint32_t node, bool running);
    /** A link, a node or anything else went. */
    void remove(std::uint32_t id);
    void clear();

    /** Nodes that the source is linked to, each once. */
    [[nodiscard]] std::set<std::uint32_t> peers() const;
    /** Those of them that run. */
    [[nodiscard]] int count() const;

private:
    struct Link
    {
        std::uint32_t output;
        std::uint32_t input;
    };
    std::uint32_t _source = UINT32_MAX;
    std::map<std::uint32_t, Link> _links;
    std::set<std::uint32_t> _running;
};

} // namespace lumivora
