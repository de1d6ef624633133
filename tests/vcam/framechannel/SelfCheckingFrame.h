// SPDX-License-Identifier: Apache-2.0
// Frames whose every word tells which frame it belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace lumivora::test {

/** A buffer for one frame. Each 64-bit word is derived from the frame's number and its own place,
 *  so that a word of another frame, or in another place, is noticed. */
class SelfCheckingFrame
{
public:
    /** @param bytes  a multiple of 8 */
    explicit SelfCheckingFrame(std::size_t bytes) : _words(bytes / sizeof(std::uint64_t)) {}

    void fill(std::uint32_t sequence)
    {
        for (std::size_t place = 0; place < _words.size(); ++place) {
            _words[place] = word(sequence, place);
        }
    }

    /** Whether every word belongs to that frame. */
    [[nodiscard]] bool is(std::uint32_t sequence) const
    {
        std::uint64_t differences = 0; // without a branch in it, the loop keeps up with the writer
        for (std::size_t place = 0; place < _words.size(); ++place) {
            differences |= _words[place] ^ word(sequence, place);
        }
        return differences == 0;
    }

    [[nodiscard]] const void *data() const { return _words.data(); }
    [[nodiscard]] std::size_t bytes() const { return _words.size() * sizeof(std::uint64_t); }
    [[nodiscard]] std::span<std::byte> span() { return std::as_writable_bytes(std::span(_words)); }

private:
    static std::uint64_t word(std::uint32_t sequence, std::size_t place)
    {
        return (std::uint64_t{sequence} << 32) + place * 0x9E3779B97F4A7C15U + sequence;
    }

    std::vector<std::uint64_t> _words;
};

} // namespace lumivora::test
