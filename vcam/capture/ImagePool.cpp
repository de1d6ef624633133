// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/ImagePool.h"

#include <QPixelFormat>

#include <cstddef>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace lumivora {

namespace {

struct Buffer
{
    std::unique_ptr<std::byte[]> pixels;
    std::size_t bytes = 0;
};

// One is published, one is written and one may be with a reader who is slower than a frame.
constexpr std::size_t kMaxSpare = 3;

} // namespace

/** Buffers that no image uses. @thread thread-safe */
class ImagePool::Shelf
{
public:
    Buffer take(std::size_t bytes)
    {
        {
            const std::lock_guard guard(_lock);
            // A new size means that the old one is over.
            std::erase_if(_spare, [bytes](const Buffer &buffer) { return buffer.bytes != bytes; });
            if (!_spare.empty()) {
                Buffer buffer = std::move(_spare.back());
                _spare.pop_back();
                return buffer;
            }
        }
        return {std::unique_ptr<std::byte[]>(new (std::nothrow) std::byte[bytes]), bytes};
    }

    void giveBack(Buffer buffer)
    {
        const std::lock_guard guard(_lock);
        if (_spare.size() < kMaxSpare) {
            _spare.push_back(std::move(buffer));
        }
    }

private:
    std::mutex _lock;
    std::vector<Buffer> _spare;
};

ImagePool::ImagePool() : _shelf(std::make_shared<Shelf>()) {}

ImagePool::~ImagePool() = default;

QImage ImagePool::take(const QSize &size, QImage::Format format)
{
    struct Loan
    {
        std::shared_ptr<Shelf> shelf;
        Buffer buffer;
    };
    const auto bitsPerPixel = std::size_t{QImage::toPixelFormat(format).bitsPerPixel()};
    const std::size_t stride =
        (static_cast<std::size_t>(size.width()) * bitsPerPixel + 31) / 32 * 4;
    Buffer buffer = _shelf->take(stride * static_cast<std::size_t>(size.height()));
    if (!buffer.pixels) {
        return {};
    }
    auto *pixels = reinterpret_cast<uchar *>(buffer.pixels.get());
    auto loan = std::make_unique<Loan>(_shelf, std::move(buffer));
    QImage image(
        pixels, size.width(), size.height(), static_cast<qsizetype>(stride), format,
        [](void *data) {
            const std::unique_ptr<Loan> ended(static_cast<Loan *>(data));
            ended->shelf->giveBack(std::move(ended->buffer));
        },
        loan.get());
    if (!image.isNull()) {
        [[maybe_unused]] const Loan *lent = loan.release(); // to the image's clean-up
    }
    return image;
}

} // namespace lumivora
