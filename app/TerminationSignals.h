// SPDX-License-Identifier: Apache-2.0
// Ends the application cleanly when the system asks for it.
#pragma once

#include <functional>
#include <memory>

namespace lumivora {

/** While it lives, a request to end the process (SIGTERM, SIGINT and SIGHUP; on Windows the
 * console's control events) runs the function on the thread that made the object, from its event
 * loop, instead of killing the process. One object at a time.
 *  @thread thread-bound */
class TerminationSignals
{
public:
    explicit TerminationSignals(std::function<void()> terminate);
    ~TerminationSignals();

    TerminationSignals(const TerminationSignals &) = delete;
    TerminationSignals &operator=(const TerminationSignals &) = delete;

private:
    struct Opaque;
    std::unique_ptr<Opaque> _opaque;
};

} // namespace lumivora
