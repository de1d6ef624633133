// SPDX-License-Identifier: Apache-2.0
// The stand-in's microphone: a PipeWire node that hums.
#pragma once

#include <memory>
#include <string>

namespace lumivora::tools {

/** A node of class Audio/Source: 48 kHz, stereo, 32-bit float, a tone of 440 Hz that swells and
 *  fades like speech does. Listed for as long as the object lives.
 *  @thread reentrant */
class Microphone
{
public:
    /** @return none when the system refuses a thread or a loop */
    [[nodiscard]] static std::unique_ptr<Microphone> create(std::string nodeName,
                                                            std::string description);
    ~Microphone();

    Microphone(const Microphone &) = delete;
    Microphone &operator=(const Microphone &) = delete;

private:
    Microphone() = default;

    class Session;
    std::unique_ptr<Session> _session;
};

} // namespace lumivora::tools
