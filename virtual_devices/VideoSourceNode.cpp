// SPDX-License-Identifier: Apache-2.0
// A camera that other programs see: a PipeWire node of class Video/Source.
#include "virtual_devices/VideoSourceNode.h"

#include "virtual_devices/ClientTracker.h"
#include "virtual_devices/PipeWireConnection.h"

#include <QLoggingCategory>

#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/raw-types.h>
#include <spa/utils/result.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <map>
#include <optional>
#include <string_view>

namespace lumivora {

namespace {

Q_LOGGING_CATEGORY(lcNode, "lumivora.devices.node")

// Clients keep a buffer while they work on it; a handful of slow ones must not starve the rest.
constexpr int kBuffers = 8;
constexpr int kFewestBuffers = 3;
constexpr int kMostBuffers = 32;
// So many frames in a row without a free buffer: the marks are those of clients that died.
constexpr int kStuckAfterDrops = 30;

struct FormatIds
{
    PixelFormat pixels;
    std::uint32_t subtype;
    std::uint32_t video;
};
constexpr std::array<FormatIds, 7> kFormatIds = {{
    {PixelFormat::Yuy2, SPA_MEDIA_SUBTYPE_raw, SPA_VIDEO_FORMAT_YUY2},
    {PixelFormat::I420, SPA_MEDIA_SUBTYPE_raw, SPA_VIDEO_FORMAT_I420},
    {PixelFormat::Nv12, SPA_MEDIA_SUBTYPE_raw, SPA_VIDEO_FORMAT_NV12},
    {PixelFormat::Bgra, SPA_MEDIA_SUBTYPE_raw, SPA_VIDEO_FORMAT_BGRA},
    {PixelFormat::Bgrx, SPA_MEDIA_SUBTYPE_raw, SPA_VIDEO_FORMAT_BGRx},
    {PixelFormat::Rgb, SPA_MEDIA_SUBTYPE_raw, SPA_VIDEO_FORMAT_RGB},
    {PixelFormat::Mjpg, SPA_MEDIA_SUBTYPE_mjpg, SPA_VIDEO_FORMAT_ENCODED},
}};

const FormatIds &idsOf(PixelFormat pixels)
{
    return *std::ranges::find(kFormatIds, pixels, &FormatIds::pixels);
}

bool isYuv(PixelFormat pixels)
{
    return pixels == PixelFormat::Yuy2 || pixels == PixelFormat::I420 ||
           pixels == PixelFormat::Nv12;
}

std::int64_t monotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * SPA_NSEC_PER_SEC + now.tv_nsec;
}

const spa_pod *asPod(void *pod)
{
    return static_cast<const spa_pod *>(pod);
}

/** One fixed format: browsers ignore ranges of sizes and choices of pixel formats. */
const spa_pod *formatPod(spa_pod_builder *builder, const PictureFormat &format, int framesPerSecond)
{
    const FormatIds &ids = idsOf(format.pixels);
    const spa_rectangle size = {static_cast<std::uint32_t>(format.width),
                                static_cast<std::uint32_t>(format.height)};
    const spa_fraction rate = {static_cast<std::uint32_t>(framesPerSecond), 1};
    spa_pod_frame frame{};
    spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                        SPA_FORMAT_mediaSubtype, SPA_POD_Id(ids.subtype), 0);
    if (ids.subtype == SPA_MEDIA_SUBTYPE_raw) {
        spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(ids.video), 0);
    }
    spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size),
                        SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate), 0);
    if (isYuv(format.pixels)) {
        spa_pod_builder_add(
            builder, SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(SPA_VIDEO_COLOR_RANGE_16_235),
            SPA_FORMAT_VIDEO_colorMatrix, SPA_POD_Id(SPA_VIDEO_COLOR_MATRIX_BT601),
            SPA_FORMAT_VIDEO_transferFunction, SPA_POD_Id(SPA_VIDEO_TRANSFER_BT709),
            SPA_FORMAT_VIDEO_colorPrimaries, SPA_POD_Id(SPA_VIDEO_COLOR_PRIMARIES_BT709), 0);
    }
    return asPod(spa_pod_builder_pop(builder, &frame));
}

const spa_pod *buffersPod(spa_pod_builder *builder, const PictureFormat &format)
{
    const PictureLayout layout = PictureLayout::of(format);
    spa_pod_frame frame{};
    spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    spa_pod_builder_add(builder, SPA_PARAM_BUFFERS_buffers,
                        SPA_POD_CHOICE_RANGE_Int(kBuffers, kFewestBuffers, kMostBuffers),
                        SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
                        SPA_POD_Int(static_cast<int>(layout.bytes)), SPA_PARAM_BUFFERS_stride,
                        SPA_POD_Int(layout.stride[0]), 0);
    return asPod(spa_pod_builder_pop(builder, &frame));
}

const spa_pod *headerPod(spa_pod_builder *builder)
{
    spa_pod_frame frame{};
    spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta);
    spa_pod_builder_add(builder, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
                        SPA_PARAM_META_size, SPA_POD_Int(static_cast<int>(sizeof(spa_meta_header))),
                        0);
    return asPod(spa_pod_builder_pop(builder, &frame));
}

std::optional<PictureFormat> parseFormat(const spa_pod *pod)
{
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    if (pod == nullptr || spa_format_parse(pod, &type, &subtype) < 0 ||
        type != SPA_MEDIA_TYPE_video) {
        return std::nullopt;
    }
    std::uint32_t video = SPA_VIDEO_FORMAT_ENCODED;
    spa_rectangle size{};
    if (subtype == SPA_MEDIA_SUBTYPE_mjpg) {
        spa_video_info_mjpg info{};
        if (spa_format_video_mjpg_parse(pod, &info) < 0) {
            return std::nullopt;
        }
        size = info.size;
    } else {
        spa_video_info_raw info{};
        if (spa_format_video_raw_parse(pod, &info) < 0) {
            return std::nullopt;
        }
        video = info.format;
        size = info.size;
    }
    const auto ids = std::ranges::find_if(kFormatIds, [&](const FormatIds &candidate) {
        return candidate.subtype == subtype && candidate.video == video;
    });
    if (ids == kFormatIds.end()) {
        return std::nullopt;
    }
    return PictureFormat{ids->pixels, static_cast<int>(size.width), static_cast<int>(size.height)};
}

std::uint32_t idFrom(const spa_dict *properties, const char *key)
{
    const char *text = spa_dict_lookup(properties, key);
    std::uint32_t id = SPA_ID_INVALID;
    return text != nullptr && spa_atou32(text, &id, 10) ? id : SPA_ID_INVALID;
}

} // namespace

/** What there is of a connection to PipeWire. Everything but the atomics is touched with the
 *  connection's lock held, which PipeWire holds in callbacks. */
class VideoSourceNode::Session
{
public:
    Session(Config config, ClientsChanged clientsChanged);
    ~Session();

    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    [[nodiscard]] bool start();
    Offer offer(const Fill &fill);

    std::atomic<bool> streaming{false};
    std::atomic<int> clients{0};
    std::atomic<std::uint64_t> dropped{0};

private:
    /** A client's node, watched for its state. */
    struct Peer
    {
        Session *session = nullptr;
        std::uint32_t id = 0;
        pw_proxy *proxy = nullptr;
        spa_hook listener{};

        ~Peer()
        {
            if (proxy != nullptr) {
                spa_hook_remove(&listener);
                pw_proxy_destroy(proxy);
            }
        }
    };

    bool connect(pw_core *core);
    void disconnect();
    void reconnectLater();

    pw_buffer *dequeue();
    void send(pw_buffer *buffer, std::size_t bytes, int stride);
    void releaseStuckBuffers();
    void updatePeers();
    void updateClients();

    // PipeWire's callbacks, on the node's thread.
    static void onGlobal(void *self, std::uint32_t id, std::uint32_t permissions, const char *type,
                         std::uint32_t version, const spa_dict *properties) noexcept;
    static void onGlobalRemoved(void *self, std::uint32_t id) noexcept;
    static void onPeerInfo(void *peer, const pw_node_info *info) noexcept;
    static void onStreamState(void *self, pw_stream_state old, pw_stream_state state,
                              const char *error) noexcept;
    static void onFormat(void *self, std::uint32_t id, const spa_pod *param) noexcept;
    static void onBufferAdded(void *self, pw_buffer *buffer) noexcept;
    static void onBufferRemoved(void *self, pw_buffer *buffer) noexcept;

    static const pw_registry_events kRegistryEvents;
    static const pw_node_events kPeerEvents;
    static const pw_stream_events kStreamEvents;

    const Config _config;
    const ClientsChanged _clientsChanged;

    pw_registry *_registry = nullptr;
    spa_hook _registryListener{};
    pw_stream *_stream = nullptr;
    spa_hook _streamListener{};

    std::optional<PictureFormat> _format;
    std::vector<pw_buffer *> _buffers;
    std::uint64_t _sequence = 0;
    int _dropsInARow = 0;

    ClientTracker _tracker;
    std::map<std::uint32_t, std::unique_ptr<Peer>> _peers;

    PipeWireConnection _connection; // last: its thread ends before what it touches
};

const pw_registry_events VideoSourceNode::Session::kRegistryEvents = [] {
    pw_registry_events events{};
    events.version = PW_VERSION_REGISTRY_EVENTS;
    events.global = &Session::onGlobal;
    events.global_remove = &Session::onGlobalRemoved;
    return events;
}();

const pw_node_events VideoSourceNode::Session::kPeerEvents = [] {
    pw_node_events events{};
    events.version = PW_VERSION_NODE_EVENTS;
    events.info = &Session::onPeerInfo;
    return events;
}();

const pw_stream_events VideoSourceNode::Session::kStreamEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = &Session::onStreamState;
    events.param_changed = &Session::onFormat;
    events.add_buffer = &Session::onBufferAdded;
    events.remove_buffer = &Session::onBufferRemoved;
    return events;
}();

VideoSourceNode::Session::Session(Config config, ClientsChanged clientsChanged)
    : _config(std::move(config)), _clientsChanged(std::move(clientsChanged))
{}

VideoSourceNode::Session::~Session()
{
    _connection.stop();
}

bool VideoSourceNode::Session::start()
{
    return _connection.start("camera node", {[this](pw_core *core) { return connect(core); },
                                             [this] {
                                                 disconnect();
                                             }});
}

bool VideoSourceNode::Session::connect(pw_core *core)
{
    _registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
    if (_registry == nullptr) {
        return false;
    }
    pw_registry_add_listener(_registry, &_registryListener, &kRegistryEvents, this);

    pw_properties *properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CLASS, "Video/Source",
                          PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_NODE_NAME, _config.nodeName.c_str(),
                          PW_KEY_NODE_DESCRIPTION, _config.description.c_str(), nullptr);
    _stream = pw_stream_new(core, _config.description.c_str(), properties);
    if (_stream == nullptr) {
        return false;
    }
    pw_stream_add_listener(_stream, &_streamListener, &kStreamEvents, this);

    std::vector<std::array<std::uint8_t, 512>> memory(_config.formats.size());
    std::vector<const spa_pod *> formats;
    for (std::size_t i = 0; i < memory.size(); ++i) {
        spa_pod_builder builder{};
        spa_pod_builder_init(&builder, memory[i].data(),
                             static_cast<std::uint32_t>(memory[i].size()));
        formats.push_back(formatPod(&builder, _config.formats[i], _config.framesPerSecond));
    }
    constexpr auto kFlags =
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS);
    const int result =
        pw_stream_connect(_stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, kFlags, formats.data(),
                          static_cast<std::uint32_t>(formats.size()));
    errno = -result;
    return result >= 0;
}

void VideoSourceNode::Session::disconnect()
{
    streaming = false;
    _peers.clear();
    if (_stream != nullptr) {
        spa_hook_remove(&_streamListener);
        pw_stream_destroy(std::exchange(_stream, nullptr));
    }
    if (_registry != nullptr) {
        spa_hook_remove(&_registryListener);
        pw_proxy_destroy(reinterpret_cast<pw_proxy *>(std::exchange(_registry, nullptr)));
    }
    _format.reset();
    _buffers.clear();
    _tracker.clear();
    updateClients();
}

void VideoSourceNode::Session::reconnectLater()
{
    streaming = false;
    _connection.reconnectLater();
}

void VideoSourceNode::Session::onStreamState(void *self, pw_stream_state /*old*/,
                                             pw_stream_state state, const char *error) noexcept
{
    auto *session = static_cast<Session *>(self);
    qCDebug(lcNode) << session->_config.description.c_str() << pw_stream_state_as_string(state);
    session->streaming = state == PW_STREAM_STATE_STREAMING;
    switch (state) {
    case PW_STREAM_STATE_ERROR:
        qCWarning(lcNode) << "camera node failed:" << error;
        session->reconnectLater();
        break;
    case PW_STREAM_STATE_UNCONNECTED:
        session->reconnectLater(); // PipeWire left, or somebody destroyed the node
        break;
    case PW_STREAM_STATE_PAUSED:
        session->_connection.settled();
        session->_tracker.setSource(pw_stream_get_node_id(session->_stream));
        session->updatePeers();
        break;
    case PW_STREAM_STATE_CONNECTING:
    case PW_STREAM_STATE_STREAMING:
        break;
    }
}

void VideoSourceNode::Session::onFormat(void *self, std::uint32_t id, const spa_pod *param) noexcept
{
    auto *session = static_cast<Session *>(self);
    if (id != SPA_PARAM_Format) {
        return;
    }
    session->_format = parseFormat(param);
    if (!session->_format) {
        return; // the last client left
    }
    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
    std::array<const spa_pod *, 2> params = {buffersPod(&builder, *session->_format),
                                             headerPod(&builder)};
    pw_stream_update_params(session->_stream, params.data(), params.size());
}

void VideoSourceNode::Session::onBufferAdded(void *self, pw_buffer *buffer) noexcept
{
    static_cast<Session *>(self)->_buffers.push_back(buffer);
}

void VideoSourceNode::Session::onBufferRemoved(void *self, pw_buffer *buffer) noexcept
{
    std::erase(static_cast<Session *>(self)->_buffers, buffer);
}

VideoSourceNode::Offer VideoSourceNode::Session::offer(const Fill &fill)
{
    if (!streaming) {
        return Offer::NotStreaming;
    }
    const PipeWireConnection::Lock guard(_connection);
    if (!streaming || !_format || _buffers.empty()) {
        return Offer::NotStreaming;
    }
    pw_buffer *buffer = dequeue();
    if (buffer == nullptr) {
        ++dropped;
        if (++_dropsInARow >= kStuckAfterDrops) {
            releaseStuckBuffers();
        }
        pw_stream_trigger_process(_stream);
        return Offer::Dropped;
    }
    _dropsInARow = 0;
    const PictureLayout layout = PictureLayout::of(*_format);
    const spa_data &memory = buffer->buffer->datas[0];
    const std::size_t bytes =
        memory.data == nullptr || memory.maxsize < layout.bytes
            ? 0
            : fill(*_format, {static_cast<std::uint8_t *>(memory.data), memory.maxsize});
    if (bytes == 0) {
        pw_stream_return_buffer(_stream, buffer);
        return Offer::Dropped;
    }
    send(buffer, bytes, layout.stride[0]);
    return Offer::Sent;
}

pw_buffer *VideoSourceNode::Session::dequeue()
{
    pw_time time{};
    if (pw_stream_get_time_n(_stream, &time, sizeof(time)) == 0 && time.queued_buffers > 0) {
        // A frame waits still. Another one behind it would make every later frame late.
        return nullptr;
    }
    for (std::size_t i = 0; i < _buffers.size(); ++i) {
        if (pw_buffer *buffer = pw_stream_dequeue_buffer(_stream)) {
            return buffer;
        }
        if (errno != EBUSY) { // busy ones went to the end of the queue
            break;
        }
    }
    return nullptr;
}

void VideoSourceNode::Session::send(pw_buffer *buffer, std::size_t bytes, int stride)
{
    spa_chunk *chunk = buffer->buffer->datas[0].chunk;
    chunk->offset = 0;
    chunk->size = static_cast<std::uint32_t>(bytes);
    chunk->stride = stride;
    chunk->flags = 0;
    auto *header = static_cast<spa_meta_header *>(
        spa_buffer_find_meta_data(buffer->buffer, SPA_META_Header, sizeof(spa_meta_header)));
    if (header != nullptr) {
        header->flags = 0;
        header->offset = 0;
        // The graph's clock stays as it is: GStreamer's source of PipeWire 1.4 takes the jump of a
        // clock that starts to count for the time of day and then waits for ever.
        header->pts = monotonicNs();
        header->dts_offset = 0;
        header->seq = _sequence;
    }
    buffer->size = 1;
    ++_sequence;
    pw_stream_queue_buffer(_stream, buffer);
    pw_stream_trigger_process(_stream);
}

void VideoSourceNode::Session::releaseStuckBuffers()
{
    qCDebug(lcNode) << "taking back the buffers of clients that died";
    _dropsInARow = 0;
    for (pw_buffer *buffer : _buffers) {
        auto *busy = static_cast<spa_meta_busy *>(
            spa_buffer_find_meta_data(buffer->buffer, SPA_META_Busy, sizeof(spa_meta_busy)));
        if (busy != nullptr) {
            std::atomic_ref(busy->count).store(0);
        }
    }
}

void VideoSourceNode::Session::onGlobal(void *self, std::uint32_t id, std::uint32_t /*permissions*/,
                                        const char *type, std::uint32_t /*version*/,
                                        const spa_dict *properties) noexcept
{
    auto *session = static_cast<Session *>(self);
    if (properties == nullptr || std::string_view(type) != PW_TYPE_INTERFACE_Link) {
        return;
    }
    session->_tracker.addLink(id, idFrom(properties, PW_KEY_LINK_OUTPUT_NODE),
                              idFrom(properties, PW_KEY_LINK_INPUT_NODE));
    session->updatePeers();
}

void VideoSourceNode::Session::onGlobalRemoved(void *self, std::uint32_t id) noexcept
{
    auto *session = static_cast<Session *>(self);
    session->_tracker.remove(id);
    session->updatePeers();
}

void VideoSourceNode::Session::onPeerInfo(void *peer, const pw_node_info *info) noexcept
{
    const auto *watched = static_cast<Peer *>(peer);
    watched->session->_tracker.setRunning(watched->id, info->state == PW_NODE_STATE_RUNNING);
    watched->session->updateClients();
}

void VideoSourceNode::Session::updatePeers()
{
    const auto linked = _tracker.peers();
    std::erase_if(_peers, [&linked](const auto &entry) { return !linked.contains(entry.first); });
    for (const std::uint32_t id : linked) {
        if (_peers.contains(id)) {
            continue;
        }
        auto peer = std::make_unique<Peer>();
        peer->session = this;
        peer->id = id;
        peer->proxy = static_cast<pw_proxy *>(
            pw_registry_bind(_registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0));
        if (peer->proxy != nullptr) {
            pw_node_add_listener(reinterpret_cast<pw_node *>(peer->proxy), &peer->listener,
                                 &kPeerEvents, peer.get());
            _peers.emplace(id, std::move(peer));
        }
    }
    updateClients();
}

void VideoSourceNode::Session::updateClients()
{
    const int count = _tracker.count();
    if (clients.exchange(count) != count && _clientsChanged) {
        _clientsChanged(count);
    }
}

VideoSourceNode::VideoSourceNode() = default;
VideoSourceNode::~VideoSourceNode() = default;

std::unique_ptr<VideoSourceNode> VideoSourceNode::create(Config config,
                                                         ClientsChanged clientsChanged)
{
    std::unique_ptr<VideoSourceNode> node(new VideoSourceNode);
    node->_session = std::make_unique<Session>(std::move(config), std::move(clientsChanged));
    return node->_session->start() ? std::move(node) : nullptr;
}

VideoSourceNode::Offer VideoSourceNode::offer(const Fill &fill)
{
    return _session->offer(fill);
}

bool VideoSourceNode::isStreaming() const
{
    return _session->streaming;
}

int VideoSourceNode::clientCount() const
{
    return _session->clients;
}

std::uint64_t VideoSourceNode::droppedFrames() const
{
    return _session->dropped;
}

} // namespace lumivora
