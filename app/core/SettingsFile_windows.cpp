// SPDX-License-Identifier: Apache-2.0
#include "app/core/SettingsFile.h"

namespace lumivora {

// The registry is transactional: a torn write never reaches a reader.
void repairSettingsStore(const QString & /*organisation*/, const QString & /*application*/) {}

} // namespace lumivora
