// SPDX-License-Identifier: Apache-2.0
#include "vcam/framechannel/SharedSection.h"

#include "vcam/framechannel/FileDescriptor.h"
#include "vcam/framechannel/RuntimeDirectory.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <optional>
#include <utility>

namespace lumivora {

/** The owner holds a write lock on its file for as long as it has it open: a lock of the open file,
 *  not of the process, so that the kernel drops it at death and other descriptors do not. */
struct SharedSection::Handle
{
    RuntimeDirectory directory;
    FileDescriptor file;
    std::string name;
    bool owner;

    Handle(RuntimeDirectory folder, FileDescriptor descriptor, std::string fileName, bool isOwner)
        : directory(std::move(folder)), file(std::move(descriptor)), name(std::move(fileName)),
          owner(isOwner)
    {}

    /** Makes the file and puts it in the place of any other; the folder is locked. Takes over the
     *  folder on success. */
    static Opened make(RuntimeDirectory &directory, const std::string &name, std::size_t bytes,
                       bool owner, const Initialise &initialise);

    /** @return the section without a handle yet */
    static Opened mapFile(int file, std::size_t bytes, int protection);
};

namespace {

std::uint32_t lastError()
{
    return static_cast<std::uint32_t>(errno);
}

struct flock wholeFile()
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

bool takeOwnership(int file)
{
    struct flock lock = wholeFile();
    return ::fcntl(file, F_OFD_SETLK, &lock) == 0;
}

bool isOwned(int file)
{
    struct flock lock = wholeFile();
    return ::fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

FileDescriptor openFile(const RuntimeDirectory &directory, const std::string &name, int access)
{
    // Without O_NONBLOCK a pipe in the file's place would stop us.
    return FileDescriptor(::openat(directory.descriptor(), name.c_str(),
                                   access | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
}

/** Bytes of a regular file, none for anything else. */
std::optional<std::size_t> regularFileBytes(int file)
{
    struct stat info = {};
    if (::fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) {
        return {};
    }
    return static_cast<std::size_t>(info.st_size);
}

/** A file under a temporary name until publish(): what is seen under the real name is complete. */
class NewFile
{
public:
    NewFile(const RuntimeDirectory &directory, std::string name, std::size_t bytes)
        : _directory(directory), _name(std::move(name)), _temporaryName(_name + ".new")
    {
        // One that a process left behind when it died: the folder is locked, so nobody uses it.
        ::unlinkat(_directory.descriptor(), _temporaryName.c_str(), 0);
        _file = FileDescriptor(::openat(_directory.descriptor(), _temporaryName.c_str(),
                                        O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (!_file) {
            return;
        }
        // Real space, not a hole: a full disk is noticed here instead of as a fault in a store.
        int error = EINTR;
        while (error == EINTR) {
            error = ::posix_fallocate(_file.get(), 0, static_cast<off_t>(bytes));
        }
        if (error != 0) {
            _file.reset();
            discard();
            errno = error;
        }
    }

    ~NewFile()
    {
        if (_file) {
            discard();
        }
    }

    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    explicit operator bool() const { return static_cast<bool>(_file); }
    [[nodiscard]] int descriptor() const { return _file.get(); }

    /** Gives the file its name, in the place of any other, and hands it over. */
    [[nodiscard]] FileDescriptor publish()
    {
        const int folder = _directory.descriptor();
        if (::renameat(folder, _temporaryName.c_str(), folder, _name.c_str()) != 0) {
            return FileDescriptor();
        }
        return std::move(_file);
    }

private:
    void discard()
    {
        const int error = errno;
        ::unlinkat(_directory.descriptor(), _temporaryName.c_str(), 0);
        errno = error;
    }

    const RuntimeDirectory &_directory;
    std::string _name;
    std::string _temporaryName;
    FileDescriptor _file;
};

} // namespace

SharedSection::Opened SharedSection::Handle::make(RuntimeDirectory &directory,
                                                  const std::string &name, std::size_t bytes,
                                                  bool owner, const Initialise &initialise)
{
    NewFile made(directory, name, bytes);
    if (!made || (owner && !takeOwnership(made.descriptor()))) {
        return {.failure = Failure::Create, .errorCode = lastError()};
    }
    Opened opened = mapFile(made.descriptor(), bytes, PROT_READ | PROT_WRITE);
    if (!opened.section) {
        return opened;
    }
    if (initialise) {
        initialise(opened.section->_data);
    }
    FileDescriptor file = made.publish();
    if (!file) {
        return {.failure = Failure::Create, .errorCode = lastError()};
    }
    opened.section->_handle =
        std::make_unique<Handle>(std::move(directory), std::move(file), name, owner);
    opened.created = true;
    return opened;
}

SharedSection::Opened SharedSection::Handle::mapFile(int file, std::size_t bytes, int protection)
{
    void *data = ::mmap(nullptr, bytes, protection, MAP_SHARED, file, 0);
    if (data == MAP_FAILED) {
        return {.failure = Failure::Map, .errorCode = lastError()};
    }
    Opened opened;
    opened.section.reset(new SharedSection);
    opened.section->_data = static_cast<std::byte *>(data);
    opened.section->_size = bytes;
    return opened;
}

std::unique_ptr<SharedSection> SharedSection::create(const std::string &name, std::size_t bytes,
                                                     const Initialise &initialise)
{
    std::optional<RuntimeDirectory> directory = RuntimeDirectory::open();
    if (!directory) {
        return {};
    }
    const RuntimeDirectory::Lock guard(*directory);
    const FileDescriptor present = openFile(*directory, name, O_RDONLY);
    if (present && isOwned(present.get())) {
        return {};
    }
    return Handle::make(*directory, name, bytes, true, initialise).section;
}

SharedSection::Opened SharedSection::openOrCreate(const std::string &name, std::size_t bytes,
                                                  const Initialise &initialise)
{
    std::optional<RuntimeDirectory> directory = RuntimeDirectory::open();
    if (!directory) {
        return {.failure = Failure::Create, .errorCode = lastError()};
    }
    const RuntimeDirectory::Lock guard(*directory);
    FileDescriptor file = openFile(*directory, name, O_RDWR);
    if (!file || regularFileBytes(file.get()) != bytes) {
        return Handle::make(*directory, name, bytes, false, initialise);
    }
    Opened opened = Handle::mapFile(file.get(), bytes, PROT_READ | PROT_WRITE);
    if (opened.section) {
        opened.section->_handle =
            std::make_unique<Handle>(std::move(*directory), std::move(file), name, false);
    }
    return opened;
}

std::unique_ptr<SharedSection> SharedSection::openReadOnly(const std::string &name)
{
    std::optional<RuntimeDirectory> directory = RuntimeDirectory::open();
    if (!directory) {
        return {};
    }
    FileDescriptor file = openFile(*directory, name, O_RDONLY);
    const std::optional<std::size_t> bytes = file ? regularFileBytes(file.get()) : std::nullopt;
    if (!bytes || *bytes == 0) {
        return {};
    }
    Opened opened = Handle::mapFile(file.get(), *bytes, PROT_READ);
    if (opened.section) {
        opened.section->_handle =
            std::make_unique<Handle>(std::move(*directory), std::move(file), name, false);
    }
    return std::move(opened.section);
}

SharedSection::~SharedSection()
{
    ::munmap(_data, _size);
    // While we own the file nobody else gives its name to another; only a person may have.
    if (_handle && _handle->owner) {
        const RuntimeDirectory::Lock guard(_handle->directory);
        if (isCurrent()) {
            ::unlinkat(_handle->directory.descriptor(), _handle->name.c_str(), 0);
        }
    }
}

bool SharedSection::ownerAlive() const
{
    return isOwned(_handle->file.get());
}

bool SharedSection::isCurrent() const
{
    struct stat ours = {};
    struct stat named = {};
    return ::fstat(_handle->file.get(), &ours) == 0 &&
           ::fstatat(_handle->directory.descriptor(), _handle->name.c_str(), &named,
                     AT_SYMLINK_NOFOLLOW) == 0 &&
           ours.st_ino == named.st_ino && ours.st_dev == named.st_dev;
}

void SharedSection::wake(std::atomic<std::uint32_t> &word)
{
    ::syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void SharedSection::waitWhileEqual(const std::atomic<std::uint32_t> &word, std::uint32_t value,
                                   std::chrono::milliseconds timeout)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const std::chrono::nanoseconds rest = timeout - seconds;
    struct timespec duration = {};
    duration.tv_sec = static_cast<time_t>(seconds.count());
    duration.tv_nsec = static_cast<long>(rest.count());
    ::syscall(SYS_futex, &word, FUTEX_WAIT, value, &duration, nullptr, 0);
}

} // namespace lumivora
