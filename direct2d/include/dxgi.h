// SPDX-License-Identifier: Apache-2.0
// The link between a Direct3D and a Direct2D device, under the platform's names.
#pragma once

#include <dxgiformat.h>
#include <unknwn.h>

/** Only ever asked for and handed on, so it has no operations of its own here. */
struct IDXGIDevice : IUnknown
{
protected:
    ~IDXGIDevice() = default;
};
LUMIVORA_INTERFACE_ID(IDXGIDevice, 0x54ec77fa, 0x1377, 0x44e6, 0x8c, 0x32, 0x88, 0xfd, 0x5f, 0x44,
                      0xc8, 0x4c)

struct IDXGIAdapter;
