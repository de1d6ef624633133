// SPDX-License-Identifier: Apache-2.0
#include "tests/support/LogCapture.h"

#include <QMutexLocker>

namespace lumivora::test {

LogCapture *LogCapture::_current = nullptr;
QMutex LogCapture::_currentLock;

LogCapture::LogCapture()
{
    const QMutexLocker guard(&_currentLock);
    _current = this;
    _previous = qInstallMessageHandler(&LogCapture::handle);
}

LogCapture::~LogCapture()
{
    const QMutexLocker guard(&_currentLock);
    qInstallMessageHandler(_previous);
    _current = nullptr;
}

void LogCapture::handle(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    const QMutexLocker guard(&_currentLock);
    if (_current == nullptr) {
        return;
    }
    const QMutexLocker lines(&_current->_lock);
    _current->_lines.append({type, text});
}

QStringList LogCapture::lines() const
{
    const QMutexLocker guard(&_lock);
    QStringList result;
    for (const Line &line : _lines) {
        result.append(line.text);
    }
    return result;
}

QStringList LogCapture::lines(QtMsgType type) const
{
    const QMutexLocker guard(&_lock);
    QStringList result;
    for (const Line &line : _lines) {
        if (line.type == type) {
            result.append(line.text);
        }
    }
    return result;
}

bool LogCapture::contains(const QString &line) const
{
    return lines().contains(line);
}

qsizetype LogCapture::count(const QString &line) const
{
    return lines().count(line);
}

void LogCapture::clear()
{
    const QMutexLocker guard(&_lock);
    _lines.clear();
}

} // namespace lumivora::test
