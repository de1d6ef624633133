// SPDX-License-Identifier: Apache-2.0
// The value and range of one effect setting.
#pragma once

#include <QtGlobal>

/** Value and range of one effect. An effect is active exactly when value differs from
 *  defaultValue. A plain record, copied by value. */
struct CameraSetting
{
    qint32 value = 0;
    qint32 step = 1;
    qint32 maximum = 0;
    qint32 minimum = 0;
    qint32 defaultValue = 0; // the neutral value
    quint16 flags = 0;

    [[nodiscard]] bool isActive() const { return value != defaultValue; }
};
