// SPDX-License-Identifier: Apache-2.0
// Memory that processes of one user share by name.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace lumivora {

/** A mapped section of memory that other processes find by its name.
 *
 *  Windows: a named, page-file-backed section in the session's namespace. It goes when the last
 *  process lets go of it.
 *  Linux: a file of mode 0600 in the user's runtime folder. Its name always stands for a complete,
 *  initialised file of fixed size: one that is in the way is replaced, never changed, because other
 *  processes may have it mapped.
 *
 *  @thread reentrant
 */
class SharedSection
{
public:
    using Initialise = std::function<void(std::byte *data)>;

    enum class Failure { None, Create, Map };

    /** What openOrCreate() did. */
    struct Opened
    {
        std::unique_ptr<SharedSection> section = nullptr; // null on failure
        bool created = false;
        Failure failure = Failure::None;
        std::uint32_t errorCode = 0; // the system's
    };

    /** Makes a section of which this process is the one owner; it goes with the object. On Linux
     *  one whose owner died is replaced.
     *  @param initialise  called once on the zero-filled section
     *  @return none when a section of that name exists (Linux: and its owner lives), or the system
     *          refuses */
    [[nodiscard]] static std::unique_ptr<SharedSection>
    create(const std::string &name, std::size_t bytes, const Initialise &initialise);

    /** Opens the section, or makes it when there is none (Linux: or its size is not bytes). It has
     *  no owner and stays when the object goes.
     *  @param initialise  called once on the zero-filled section if it is made here; may be empty
     */
    [[nodiscard]] static Opened openOrCreate(const std::string &name, std::size_t bytes,
                                             const Initialise &initialise = {});

    /** Maps an existing section read-only: writing through data() is a fault.
     *  @return none when there is none */
    [[nodiscard]] static std::unique_ptr<SharedSection> openReadOnly(const std::string &name);

    ~SharedSection();

    SharedSection(const SharedSection &) = delete;
    SharedSection &operator=(const SharedSection &) = delete;

    [[nodiscard]] std::byte *data() const { return _data; }
    /** Bytes; Windows rounds those of an opened section up to whole pages. */
    [[nodiscard]] std::size_t size() const { return _size; }

    /** Whether the owner's process still has the section. Always true on Windows, which does not
     *  tell. */
    [[nodiscard]] bool ownerAlive() const;

    /** Whether the name still stands for this section. */
    [[nodiscard]] bool isCurrent() const;

    /** Wakes every process that waits on the word (Windows: they poll, nothing to do). */
    static void wake(std::atomic<std::uint32_t> &word);

    /** Returns once the word, which lies in a section, is no longer value, after the time-out, or
     *  earlier for no reason. */
    static void waitWhileEqual(const std::atomic<std::uint32_t> &word, std::uint32_t value,
                               std::chrono::milliseconds timeout);

private:
    SharedSection() = default;

    struct Handle;
    std::unique_ptr<Handle> _handle;
    std::byte *_data = nullptr;
    std::size_t _size = 0;
};

} // namespace lumivora
