// SPDX-License-Identifier: Apache-2.0
#include "direct2d/portable/ComObject.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace lumivora::test {

namespace {

using direct2d::guarded;

TEST(Guarded, operation_returns_itsResultPasses)
{
    EXPECT_EQ(guarded([] { return S_OK; }), S_OK);
    EXPECT_EQ(guarded([] { return E_ACCESSDENIED; }), E_ACCESSDENIED);
}

TEST(Guarded, operation_throws_becomesAResult)
{
    EXPECT_EQ(guarded([]() -> HRESULT { throw std::bad_alloc(); }), E_OUTOFMEMORY);
    EXPECT_EQ(guarded([]() -> HRESULT {
                  throw cv::Exception(cv::Error::StsNoMem, "no memory", "", "", 0);
              }),
              E_OUTOFMEMORY);
    EXPECT_EQ(guarded([]() -> HRESULT {
                  throw cv::Exception(cv::Error::StsBadArg, "bad argument", "", "", 0);
              }),
              E_FAIL);
    EXPECT_EQ(guarded([]() -> HRESULT { throw std::runtime_error("any"); }), E_FAIL);
    EXPECT_EQ(guarded([]() -> HRESULT { throw 1; }), E_FAIL);
}

} // namespace

} // namespace lumivora::test
