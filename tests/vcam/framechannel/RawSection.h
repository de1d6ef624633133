// SPDX-License-Identifier: Apache-2.0
// The shared sections as a stranger sees them: opened by name without the code under test.
#pragma once

#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace lumivora::test {

/** A section's memory, writable. */
class RawSection
{
public:
    /** @return none when there is no section of that name */
    static std::unique_ptr<RawSection> open(const std::string &name);
    /** Makes a section of this size and content. Linux: a file, which stays; nobody locks it. */
    static std::unique_ptr<RawSection> make(const std::string &name,
                                            std::span<const std::byte> content);
    static bool exists(const std::string &name) { return open(name) != nullptr; }

    ~RawSection();

    RawSection(const RawSection &) = delete;
    RawSection &operator=(const RawSection &) = delete;

    /** Windows rounds the size up to whole pages. */
    [[nodiscard]] std::span<std::byte> bytes() const { return _bytes; }
    [[nodiscard]] std::vector<std::byte> copy() const { return {_bytes.begin(), _bytes.end()}; }

    template <typename T>
    [[nodiscard]] T at(std::size_t offset) const
    {
        T value;
        std::memcpy(&value, _bytes.data() + offset, sizeof(value));
        return value;
    }
    void set(std::size_t offset, std::uint32_t value) const
    {
        std::memcpy(_bytes.data() + offset, &value, sizeof(value));
    }

private:
    RawSection() = default;

    [[maybe_unused]] void *_handle = nullptr; // Windows only
    std::span<std::byte> _bytes;
};

/** Points this process and those it starts at a fresh runtime folder while it lives, so that no
 *  test meets the files of the person who runs it. Windows names belong to the session: there the
 *  tests must not run at the same time. */
class PrivateRuntime
{
public:
    PrivateRuntime() : _former(qgetenv(kVariable))
    {
        qputenv(kVariable, _folder.path().toLocal8Bit());
    }
    ~PrivateRuntime()
    {
        if (_former.isNull()) {
            qunsetenv(kVariable);
        } else {
            qputenv(kVariable, _former);
        }
    }

    PrivateRuntime(const PrivateRuntime &) = delete;
    PrivateRuntime &operator=(const PrivateRuntime &) = delete;

    [[nodiscard]] std::string path() const { return _folder.path().toStdString(); }

private:
    static constexpr auto kVariable = "XDG_RUNTIME_DIR";

    QTemporaryDir _folder;
    QByteArray _former;
};

} // namespace lumivora::test
