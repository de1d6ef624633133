// SPDX-License-Identifier: Apache-2.0
// Start at login.
#pragma once

#include <QString>

namespace lumivora {

/** Registers a program to start when the user logs in (the Run key; on Linux an XDG autostart
 *  entry), replacing an earlier registration.
 *  @param executable  full path, in the platform's notation */
void addToLogin(const QString &executable);

/** Takes the registration back. */
void removeFromLogin();

} // namespace lumivora
