// SPDX-License-Identifier: Apache-2.0
// The stand-in's microphone: a PipeWire node that hums.
#include "tools/standin/Microphone.h"

#include "virtual_devices/PipeWireConnection.h"

#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <utility>
#include <vector>

namespace lumivora::tools {

namespace {

constexpr int kRateHz = 48000;
constexpr int kChannels = 2;
constexpr int kToneHz = 440;
constexpr double kSyllablesPerSecond = 4;
constexpr double kLoudest = 0.25; // -12 dB full scale
constexpr std::size_t kBytesPerFrame = kChannels * sizeof(float);

/** One second, which ends where it began. */
std::vector<float> oneSecond()
{
    std::vector<float> samples;
    samples.reserve(std::size_t{kRateHz} * kChannels);
    for (int i = 0; i < kRateHz; ++i) {
        const double turns = 2 * std::numbers::pi * i / kRateHz;
        const double swell = 0.6 - 0.4 * std::cos(turns * kSyllablesPerSecond);
        const auto value = static_cast<float>(kLoudest * swell * std::sin(turns * kToneHz));
        samples.insert(samples.end(), kChannels, value);
    }
    return samples;
}

} // namespace

class Microphone::Session
{
public:
    Session(std::string nodeName, std::string description)
        : _nodeName(std::move(nodeName)), _description(std::move(description)), _sound(oneSecond())
    {}
    ~Session() { _connection.stop(); }

    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    bool start()
    {
        return _connection.start("microphone", {[this](pw_core *core) { return connect(core); },
                                                [this] {
                                                    disconnect();
                                                }});
    }

private:
    bool connect(pw_core *core)
    {
        _stream = pw_stream_new(
            core, _description.c_str(),
            pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CLASS, "Audio/Source",
                              PW_KEY_NODE_NAME, _nodeName.c_str(), PW_KEY_NODE_DESCRIPTION,
                              _description.c_str(), PW_KEY_PRIORITY_SESSION, "0", nullptr));
        if (_stream == nullptr) {
            return false;
        }
        pw_stream_add_listener(_stream, &_listener, &kStreamEvents, this);
        std::array<std::uint8_t, 512> memory{};
        spa_pod_builder builder{};
        spa_pod_builder_init(&builder, memory.data(), memory.size());
        spa_audio_info_raw info{};
        info.format = SPA_AUDIO_FORMAT_F32;
        info.rate = kRateHz;
        info.channels = kChannels;
        info.position[0] = SPA_AUDIO_CHANNEL_FL;
        info.position[1] = SPA_AUDIO_CHANNEL_FR;
        std::array<const spa_pod *, 1> format = {
            spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
        const int result = pw_stream_connect(
            _stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
            static_cast<pw_stream_flags>(PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS),
            format.data(), format.size());
        errno = -result;
        return result >= 0;
    }

    void disconnect()
    {
        if (_stream != nullptr) {
            spa_hook_remove(&_listener);
            pw_stream_destroy(std::exchange(_stream, nullptr));
        }
    }

    static void onState(void *self, pw_stream_state /*old*/, pw_stream_state state,
                        const char * /*error*/) noexcept
    {
        auto *session = static_cast<Session *>(self);
        if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
            session->_connection.reconnectLater();
        } else if (state == PW_STREAM_STATE_PAUSED) {
            session->_connection.settled();
        }
    }

    /** On PipeWire's real-time thread. */
    static void onProcess(void *self) noexcept
    {
        auto *session = static_cast<Session *>(self);
        pw_buffer *buffer = pw_stream_dequeue_buffer(session->_stream);
        if (buffer == nullptr) {
            return;
        }
        const spa_data &memory = buffer->buffer->datas[0];
        std::size_t frames = memory.maxsize / kBytesPerFrame;
        if (buffer->requested > 0) {
            frames = std::min<std::size_t>(frames, buffer->requested);
        }
        for (std::size_t done = 0; done < frames;) {
            const std::size_t part = std::min(frames - done, kRateHz - session->_position);
            std::memcpy(static_cast<std::byte *>(memory.data) + done * kBytesPerFrame,
                        &session->_sound[session->_position * kChannels], part * kBytesPerFrame);
            session->_position = (session->_position + part) % kRateHz;
            done += part;
        }
        memory.chunk->offset = 0;
        memory.chunk->stride = static_cast<std::int32_t>(kBytesPerFrame);
        memory.chunk->size = static_cast<std::uint32_t>(frames * kBytesPerFrame);
        pw_stream_queue_buffer(session->_stream, buffer);
    }

    static const pw_stream_events kStreamEvents;

    const std::string _nodeName;
    const std::string _description;
    const std::vector<float> _sound;
    std::size_t _position = 0; // in _sound, frames
    pw_stream *_stream = nullptr;
    spa_hook _listener{};
    PipeWireConnection _connection; // last: its thread ends before what it touches
};

const pw_stream_events Microphone::Session::kStreamEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = &Session::onState;
    events.process = &Session::onProcess;
    return events;
}();

Microphone::~Microphone() = default;

std::unique_ptr<Microphone> Microphone::create(std::string nodeName, std::string description)
{
    std::unique_ptr<Microphone> microphone(new Microphone);
    microphone->_session = std::make_unique<Session>(std::move(nodeName), std::move(description));
    return microphone->_session->start() ? std::move(microphone) : nullptr;
}

} // namespace lumivora::tools
