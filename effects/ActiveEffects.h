// SPDX-License-Identifier: Apache-2.0
// Which effects the user's choices ask for.
#pragma once

class BaseSettings;

namespace lumivora {

/** The effects that a frame is to go through, as the settings say at this moment. */
struct ActiveEffects
{
    bool tone = false;
    bool blur = false; // never in low-power mode
    bool rotation = false;
    bool logo = false;
    bool text = false;

    /** Looks everything up afresh. @thread thread-safe */
    [[nodiscard]] static ActiveEffects fromSettings(BaseSettings &settings);
};

} // namespace lumivora
