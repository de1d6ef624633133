// SPDX-License-Identifier: Apache-2.0
// A connection to PipeWire, with a thread of its own, that comes back by itself.
#pragma once

#include <functional>
#include <memory>

struct pw_core;

namespace lumivora {

/** Connects to PipeWire, and again whenever it is lost, for ever: 100 ms after the loss at first,
 *  up to 2 s apart while PipeWire stays away.
 *
 *  @thread thread-safe; PipeWire's callbacks run on the connection's thread with its lock held */
class PipeWireConnection
{
public:
    struct Callbacks
    {
        /** A connection is there. @return false when it cannot be used after all */
        std::function<bool(pw_core *core)> connected;
        /** Destroy what was made of the connection, also after a failed connected(). */
        std::function<void()> disconnecting;
    };

    /** Held around every use of an object of the connection outside its callbacks. */
    class Lock
    {
    public:
        explicit Lock(const PipeWireConnection &connection);
        ~Lock();

        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        const PipeWireConnection &_connection;
    };

    PipeWireConnection();
    /** Stops. */
    ~PipeWireConnection();

    PipeWireConnection(const PipeWireConnection &) = delete;
    PipeWireConnection &operator=(const PipeWireConnection &) = delete;

    /** Starts the thread, which connects. Called once.
     *  @param threadName  also names the connection in the log
     *  @return false when the system refuses a thread or a loop; a missing PipeWire is no failure
     */
    [[nodiscard]] bool start(const char *threadName, Callbacks callbacks);

    /** Ends the thread, then disconnects; idempotent. Not from the connection's thread. */
    void stop();

    /** Drops the connection soon and makes a new one. @thread thread-bound: the connection's */
    void reconnectLater();

    /** What was made of the connection works: the next loss counts as the first. @thread
     *  thread-bound: the connection's */
    void settled();

private:
    struct Objects;
    std::unique_ptr<Objects> _objects;
};

} // namespace lumivora
