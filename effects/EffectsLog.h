// SPDX-License-Identifier: Apache-2.0
// The logging category of the effects.
#pragma once

#include <QLoggingCategory>

namespace lumivora {

Q_DECLARE_LOGGING_CATEGORY(lcEffects)

} // namespace lumivora
