// SPDX-License-Identifier: Apache-2.0
// A connection to PipeWire, with a thread of its own, that comes back by itself.
#include "virtual_devices/PipeWireConnection.h"

#include <QLoggingCategory>

#include <pipewire/pipewire.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcPipeWire, "lumivora.devices.pipewire")

constexpr int kFirstRetryMs = 100;
constexpr int kLongestRetryMs = 2000;

} // namespace

struct PipeWireConnection::Objects
{
    std::string name;
    Callbacks callbacks;
    pw_thread_loop *thread = nullptr;
    pw_context *context = nullptr;
    spa_source *retryTimer = nullptr;
    pw_core *core = nullptr;
    spa_hook coreListener{};
    int retryMs = kFirstRetryMs;
    bool retryPending = false;
    bool complained = false; // about the PipeWire that is not there

    bool connect()
    {
        core = pw_context_connect(context, nullptr, 0);
        if (core == nullptr) {
            return false;
        }
        pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
        return callbacks.connected(core);
    }

    void disconnect()
    {
        callbacks.disconnecting();
        if (core != nullptr) {
            spa_hook_remove(&coreListener);
            pw_core_disconnect(std::exchange(core, nullptr));
        }
    }

    void retryAfter(int delayMs) const
    {
        // A delay of zero would disarm the timer.
        timespec delay = {delayMs / 1000, delayMs % 1000 * SPA_NSEC_PER_MSEC + 1};
        pw_loop_update_timer(pw_thread_loop_get_loop(thread), retryTimer, &delay, nullptr, false);
    }

    void reconnectLater()
    {
        if (std::exchange(retryPending, true)) {
            return; // the stream and the core tell of the same loss
        }
        retryAfter(retryMs);
        retryMs = std::min(retryMs * 2, kLongestRetryMs);
    }

    static void onRetry(void *self, std::uint64_t /*expirations*/) noexcept
    {
        auto *objects = static_cast<Objects *>(self);
        objects->retryPending = false;
        objects->disconnect();
        if (objects->connect()) {
            return;
        }
        if (!std::exchange(objects->complained, true)) {
            qCWarning(lcPipeWire) << objects->name.c_str()
                                  << "cannot reach PipeWire, trying on:" << qt_error_string(errno);
        }
        objects->disconnect();
        objects->reconnectLater();
    }

    static void onCoreError(void *self, std::uint32_t id, int /*sequence*/, int result,
                            const char *message) noexcept
    {
        auto *objects = static_cast<Objects *>(self);
        if (id == PW_ID_CORE && result == -EPIPE) {
            qCWarning(lcPipeWire) << objects->name.c_str() << "lost PipeWire:" << message;
            objects->reconnectLater();
        }
    }

    static const pw_core_events kCoreEvents;
};

const pw_core_events PipeWireConnection::Objects::kCoreEvents = [] {
    pw_core_events events{};
    events.version = PW_VERSION_CORE_EVENTS;
    events.error = &Objects::onCoreError;
    return events;
}();

PipeWireConnection::Lock::Lock(const PipeWireConnection &connection) : _connection(connection)
{
    pw_thread_loop_lock(_connection._objects->thread);
}

PipeWireConnection::Lock::~Lock()
{
    pw_thread_loop_unlock(_connection._objects->thread);
}

PipeWireConnection::PipeWireConnection() : _objects(std::make_unique<Objects>())
{
    pw_init(nullptr, nullptr);
}

PipeWireConnection::~PipeWireConnection()
{
    stop();
    pw_deinit();
}

bool PipeWireConnection::start(const char *threadName, Callbacks callbacks)
{
    Objects &objects = *_objects;
    objects.name = threadName;
    objects.callbacks = std::move(callbacks);
    objects.thread = pw_thread_loop_new(threadName, nullptr);
    if (objects.thread == nullptr) {
        return false;
    }
    pw_loop *loop = pw_thread_loop_get_loop(objects.thread);
    objects.context = pw_context_new(loop, nullptr, 0);
    objects.retryTimer = pw_loop_add_timer(loop, &Objects::onRetry, &objects);
    if (objects.context == nullptr || objects.retryTimer == nullptr) {
        return false;
    }
    objects.retryAfter(0);
    return pw_thread_loop_start(objects.thread) == 0;
}

void PipeWireConnection::stop()
{
    Objects &objects = *_objects;
    if (objects.thread == nullptr) {
        return;
    }
    pw_thread_loop_stop(objects.thread);
    objects.disconnect();
    if (objects.retryTimer != nullptr) {
        pw_loop_destroy_source(pw_thread_loop_get_loop(objects.thread), objects.retryTimer);
    }
    if (objects.context != nullptr) {
        pw_context_destroy(objects.context);
    }
    pw_thread_loop_destroy(std::exchange(objects.thread, nullptr));
}

void PipeWireConnection::reconnectLater()
{
    _objects->reconnectLater();
}

void PipeWireConnection::settled()
{
    _objects->retryMs = kFirstRetryMs;
    _objects->complained = false;
}

} // namespace lumivora
