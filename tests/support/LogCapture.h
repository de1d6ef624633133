// SPDX-License-Identifier: Apache-2.0
// Captures the framework's log, so that tests compare its texts exactly.
#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtLogging>

namespace lumivora::test {

/** While it lives, every log line of the process goes into lines() instead of the output.
 *  Not nestable. @thread thread-safe */
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /** Every message so far, without category, in order. */
    [[nodiscard]] QStringList lines() const;
    /** The messages of one kind. */
    [[nodiscard]] QStringList lines(QtMsgType type) const;
    [[nodiscard]] bool contains(const QString &line) const;
    [[nodiscard]] qsizetype count(const QString &line) const;
    void clear();

private:
    struct Line
    {
        QtMsgType type;
        QString text;
    };
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    static LogCapture *_current;
    static QMutex _currentLock;
    QtMessageHandler _previous = nullptr;
    mutable QMutex _lock;
    QList<Line> _lines;
};

} // namespace lumivora::test
