// SPDX-License-Identifier: Apache-2.0
// What every object of the portable Direct2D shares: counting, identity, and the exception border.
#pragma once

#include "direct2d/portable/ObjectCounts.h"

#include <opencv2/core.hpp>

#include <unknwn.h>

#include <atomic>
#include <new>

namespace lumivora::direct2d {

/** A counted object that implements Primary and answers for its Bases.
 *  @thread the count is thread-safe */
template <typename Primary, typename... Bases>
class ComObject : public Primary
{
public:
    ComObject(const ComObject &) = delete;
    ComObject &operator=(const ComObject &) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) noexcept override
    {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = find(riid);
        if (*object == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() noexcept override
    {
        return _references.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    ULONG STDMETHODCALLTYPE Release() noexcept override
    {
        // The last owner must see what the others did before they let go.
        const ULONG left = _references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) {
            delete this;
        }
        return left;
    }

protected:
    /** Starts with one reference, the creator's. */
    ComObject() noexcept
    {
        objectCounts().live.fetch_add(1, std::memory_order_relaxed);
        objectCounts().made.fetch_add(1, std::memory_order_relaxed);
    }
    virtual ~ComObject() { objectCounts().live.fetch_sub(1, std::memory_order_relaxed); }

    /** The object as another of its interfaces, uncounted; null when it has none. */
    virtual void *find(REFIID riid) noexcept
    {
        void *found = nullptr;
        if (riid == __uuidof(Primary)) {
            found = static_cast<Primary *>(this);
        }
        ((riid == __uuidof(Bases) ? void(found = static_cast<Bases *>(this)) : void()), ...);
        return found;
    }

private:
    std::atomic<ULONG> _references = 1;
};

/** Runs an operation at the border of an interface, which no exception may cross. */
template <typename Operation>
HRESULT guarded(Operation &&operation) noexcept
{
    try {
        return operation();
    } catch (const std::bad_alloc &) {
        return E_OUTOFMEMORY;
    } catch (const cv::Exception &error) {
        return error.code == cv::Error::StsNoMem ? E_OUTOFMEMORY : E_FAIL;
    } catch (...) {
        return E_FAIL;
    }
}

} // namespace lumivora::direct2d
