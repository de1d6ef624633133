// SPDX-License-Identifier: Apache-2.0
#include "effects/EffectsLog.h"

namespace lumivora {

Q_LOGGING_CATEGORY(lcEffects, "lumivora.effects")

} // namespace lumivora
