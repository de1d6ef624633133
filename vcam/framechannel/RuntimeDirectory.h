// SPDX-License-Identifier: Apache-2.0
// The folder where processes of one user meet (Linux).
#pragma once

#include "vcam/framechannel/FileDescriptor.h"

#include <optional>
#include <string>

namespace lumivora {

/** The folder of our shared files: `$XDG_RUNTIME_DIR/lumivora-control`, without that variable
 *  `/run/user/<uid>/lumivora-control`, and without that folder
 *  `<temporary folder>/lumivora-control-<uid>`. Only its user can write in it.
 *
 *  @thread reentrant
 */
class RuntimeDirectory
{
public:
    /** Opens the folder, making it with mode 0700 when it is missing.
     *  @return none, with errno set, when it cannot be made, is a link, belongs to another user or
     *          lets others write */
    [[nodiscard]] static std::optional<RuntimeDirectory> open();

    [[nodiscard]] int descriptor() const { return _descriptor.get(); }
    [[nodiscard]] const std::string &path() const { return _path; }

    /** While it lives, no other holder of one, in any process, changes which files the folder has.
     *  The kernel releases it for a process that dies. */
    class Lock
    {
    public:
        explicit Lock(const RuntimeDirectory &directory);
        ~Lock();

        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        int _descriptor;
    };

private:
    RuntimeDirectory(FileDescriptor descriptor, std::string path);

    FileDescriptor _descriptor;
    std::string _path;
};

} // namespace lumivora
