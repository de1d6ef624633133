// SPDX-License-Identifier: Apache-2.0
#include "app/core/SettingsFile.h"

#include <QList>

#include <algorithm>

namespace lumivora {

bool isIntactIni(const QByteArray &bytes)
{
    if (bytes.isEmpty()) {
        return true;
    }
    const bool hasControls = std::ranges::any_of(bytes, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\n' && c != '\r' && c != '\t') || byte == 0x7F;
    });
    if (hasControls || !bytes.endsWith('\n')) {
        return false;
    }
    const QByteArrayList lines = bytes.split('\n');
    return std::ranges::all_of(lines, [](const QByteArray &raw) {
        const QByteArray line = raw.trimmed();
        return line.isEmpty() || line.startsWith(';') || line.contains('=') ||
               (line.startsWith('[') && line.endsWith(']'));
    });
}

} // namespace lumivora
