// SPDX-License-Identifier: Apache-2.0
// What the private states of all stages have in common.
#pragma once

#include "effects/SubProcessor.h"

/** Private state of a stage; each stage derives its own. */
class SubProcessor::OpaqueBase
{
public:
    OpaqueBase(SubProcessor *stage, lumivora::ComPtr<ID2D1DeviceContext> deviceContext)
        : owner(stage), context(std::move(deviceContext))
    {}
    virtual ~OpaqueBase() { owner = nullptr; }

    OpaqueBase(const OpaqueBase &) = delete;
    OpaqueBase &operator=(const OpaqueBase &) = delete;

    SubProcessor *owner;
    lumivora::ComPtr<ID2D1DeviceContext> context; // the pipeline's one
    Bitmap lastResult;
};
