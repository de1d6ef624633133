// SPDX-License-Identifier: Apache-2.0
// What is done about a settings store that a crash or a full disk has damaged.
#pragma once

#include <QByteArray>
#include <QString>

namespace lumivora {

/** Looks at the user's settings before they are opened. A damaged file is renamed to
 *  "<file>.damaged-<number>" with one warning, so that the application starts with defaults and
 *  nothing of it is lost. A lock whose holder was killed is removed. The registry keeps itself
 *  intact: nothing is done there.
 *  @thread reentrant */
void repairSettingsStore(const QString &organisation, const QString &application);

/** Whether these are the bytes of an ini file as the framework writes them: complete lines of
 *  sections, comments and assignments, without control characters. */
[[nodiscard]] bool isIntactIni(const QByteArray &bytes);

} // namespace lumivora
