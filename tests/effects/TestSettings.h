// SPDX-License-Identifier: Apache-2.0
// A settings store of a test's own.
#pragma once

#include "app/core/BaseSettings.h"

#include <QTemporaryDir>

#include <memory>

namespace lumivora::test {

/** Starts with the defaults and leaves nothing behind. */
class TestSettings
{
public:
    TestSettings();
    ~TestSettings();

    TestSettings(const TestSettings &) = delete;
    TestSettings &operator=(const TestSettings &) = delete;

    [[nodiscard]] BaseSettings &store() { return *_store; }

    void set(BaseSettings::Settings key, int value) { _store->setSetting(key, value, false); }
    void set(BaseSettings::Settings group, BaseSettings::SubSettings key, const QVariant &value)
    {
        _store->setSubSetting(group, key, value);
    }

private:
    QTemporaryDir _folder;
    std::unique_ptr<BaseSettings> _store;
};

} // namespace lumivora::test
