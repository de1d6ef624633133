// SPDX-License-Identifier: Apache-2.0
// A connection to PipeWire for one GStreamer element alone.
#pragma once

namespace lumivora {

/** Connects to the PipeWire that this process would use by default.
 *  @return a descriptor, the caller's to close, or -1 when PipeWire cannot be reached
 *  @thread thread-safe; never waits */
[[nodiscard]] int connectToPipeWire();

} // namespace lumivora
