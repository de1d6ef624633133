// SPDX-License-Identifier: Apache-2.0
#include "direct2d/ComPtr.h"

#include <unknwn.h>

#include <gmock/gmock.h>

namespace lumivora::test {

namespace {

struct IFirst : IUnknown
{
protected:
    ~IFirst() = default;
};
struct IOther : IUnknown
{
protected:
    ~IOther() = default;
};

} // namespace

} // namespace lumivora::test

LUMIVORA_INTERFACE_ID(lumivora::test::IOther, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11)

namespace lumivora::test {

namespace {

/** Counts its references and never goes away by itself. */
class Counted final : public IFirst
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) override
    {
        if (riid != __uuidof(IUnknown)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<IUnknown *>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }

    ULONG references = 1;
};

TEST(ComPtr, attach_takesOverTheReference_releasedOnce)
{
    Counted object;
    {
        ComPtr<IFirst> pointer;
        pointer.attach(&object);
        EXPECT_EQ(object.references, 1U);
    }
    EXPECT_EQ(object.references, 0U);
}

TEST(ComPtr, construct_fromRawPointer_addsAReference)
{
    Counted object;
    {
        const ComPtr<IFirst> pointer(&object);
        EXPECT_EQ(object.references, 2U);
    }
    EXPECT_EQ(object.references, 1U);
}

TEST(ComPtr, copyAndMove_keepTheCount)
{
    Counted object;
    ComPtr<IFirst> first(&object);
    ComPtr<IFirst> copy = first;
    EXPECT_EQ(object.references, 3U);
    ComPtr<IFirst> moved = std::move(copy);
    EXPECT_EQ(object.references, 3U);
    EXPECT_FALSE(copy); // NOLINT: being empty is what a moved pointer promises
    copy = moved;
    EXPECT_EQ(object.references, 4U);
    const ComPtr<IFirst> &self = copy;
    copy = self;
    EXPECT_EQ(object.references, 4U);
    first = nullptr;
    moved = nullptr;
    copy = nullptr;
    EXPECT_EQ(object.references, 1U);
}

TEST(ComPtr, put_onFilledPointer_releasesFirst)
{
    Counted object;
    ComPtr<IFirst> pointer(&object);
    EXPECT_EQ(*pointer.put(), nullptr);
    EXPECT_EQ(object.references, 1U);
}

TEST(ComPtr, detach_handsTheReferenceOver)
{
    Counted object;
    ComPtr<IFirst> pointer(&object);
    EXPECT_EQ(pointer.detach(), &object);
    EXPECT_FALSE(pointer);
    EXPECT_EQ(object.references, 2U);
}

TEST(ComPtr, query_knownAndUnknownInterface_referenceOrEmpty)
{
    Counted object;
    const ComPtr<IFirst> pointer(&object);
    {
        const ComPtr<IUnknown> unknown = pointer.query<IUnknown>();
        EXPECT_EQ(unknown.get(), &object);
        EXPECT_EQ(object.references, 3U);
    }
    EXPECT_FALSE(pointer.query<IOther>());
    EXPECT_EQ(object.references, 2U);
    EXPECT_FALSE(ComPtr<IFirst>().query<IUnknown>());
}

TEST(ComPtr, convert_derivedToBase_sharesOrMoves)
{
    Counted object;
    ComPtr<IFirst> pointer(&object);
    {
        const ComPtr<IUnknown> base = pointer;
        EXPECT_EQ(object.references, 3U);
    }
    const ComPtr<IUnknown> base = std::move(pointer);
    EXPECT_EQ(object.references, 2U);
}

} // namespace

} // namespace lumivora::test
