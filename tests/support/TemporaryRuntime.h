// SPDX-License-Identifier: Apache-2.0
// A runtime directory of a test's own.
#pragma once

#include <QTemporaryDir>
#include <QtEnvironmentVariables>

namespace lumivora::test {

/** While it lives, what the product puts into the user's runtime directory goes into a fresh one;
 *  without effect where there is no such directory. */
class TemporaryRuntime
{
public:
    TemporaryRuntime() : _previous(qgetenv("XDG_RUNTIME_DIR"))
    {
        qputenv("XDG_RUNTIME_DIR", _directory.path().toLocal8Bit());
    }
    ~TemporaryRuntime()
    {
        if (_previous.isNull()) {
            qunsetenv("XDG_RUNTIME_DIR");
        } else {
            qputenv("XDG_RUNTIME_DIR", _previous);
        }
    }

    TemporaryRuntime(const TemporaryRuntime &) = delete;
    TemporaryRuntime &operator=(const TemporaryRuntime &) = delete;

    [[nodiscard]] QString path() const { return _directory.path(); }

private:
    QTemporaryDir _directory; // made with mode 0700
    QByteArray _previous;
};

} // namespace lumivora::test
