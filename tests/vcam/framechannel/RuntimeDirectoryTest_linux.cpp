// SPDX-License-Identifier: Apache-2.0
// Where the shared files lie, and which folders are not trusted with them.

#include "tests/vcam/framechannel/RawSection.h"
#include "vcam/framechannel/RuntimeDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace lumivora::test {

namespace {

namespace fs = std::filesystem;

class RuntimeDirectoryTest : public ::testing::Test
{
protected:
    RuntimeDirectoryTest() { qputenv("TMPDIR", _temporary.path().toLocal8Bit()); }
    ~RuntimeDirectoryTest() override
    {
        if (_formerTemporary.isNull()) {
            qunsetenv("TMPDIR");
        } else {
            qputenv("TMPDIR", _formerTemporary);
        }
    }

    [[nodiscard]] std::string configured() const { return _runtime.path() + "/lumivora-control"; }

    /** Where the files lie when no runtime folder is configured: depends on the machine. */
    [[nodiscard]] std::string fallback() const
    {
        const std::string user = std::to_string(::geteuid());
        struct stat info = {};
        const std::string runtime = "/run/user/" + user;
        if (::stat(runtime.c_str(), &info) == 0 && info.st_uid == ::geteuid()) {
            return runtime + "/lumivora-control";
        }
        return _temporary.path().toStdString() + "/lumivora-control-" + user;
    }

    static std::string openedPath()
    {
        const auto directory = RuntimeDirectory::open();
        return directory ? directory->path() : "none";
    }

    const PrivateRuntime _runtime;
    const QTemporaryDir _temporary;
    const QByteArray _formerTemporary = qgetenv("TMPDIR");
};

} // namespace

TEST_F(RuntimeDirectoryTest, open_configuredFolder_isMadeForItsUserAlone)
{
    EXPECT_EQ(openedPath(), configured());
    EXPECT_EQ(fs::status(configured()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(openedPath(), configured()) << "it is there now";
}

TEST_F(RuntimeDirectoryTest, open_notConfigured_fallsBack)
{
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(openedPath(), fallback());
    EXPECT_EQ(fs::status(fallback()).permissions(), fs::perms::owner_all);
}

TEST_F(RuntimeDirectoryTest, open_configuredFolderUnusable_fallsBack)
{
    std::ofstream(_runtime.path() + "/file") << "no folder";
    const QByteArray file = QByteArray::fromStdString(_runtime.path()) + "/file";
    for (const QByteArray &value :
         {QByteArray(), QByteArray("relative"), QByteArray("/nonexistent/folder"), file}) {
        qputenv("XDG_RUNTIME_DIR", value);
        EXPECT_EQ(openedPath(), fallback()) << value.toStdString();
    }
}

TEST_F(RuntimeDirectoryTest, open_configuredFolderOfAnotherUser_fallsBack)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    ASSERT_EQ(::chown(_runtime.path().c_str(), 12345, 12345), 0);
    EXPECT_EQ(openedPath(), fallback());
    EXPECT_FALSE(fs::exists(configured()));
    ASSERT_EQ(::chown(_runtime.path().c_str(), 0, 0), 0);
}

TEST_F(RuntimeDirectoryTest, open_folderOfAnotherUser_isRefused)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    fs::create_directory(configured());
    fs::permissions(configured(), fs::perms::owner_all);
    ASSERT_EQ(::chown(configured().c_str(), 12345, 12345), 0);
    EXPECT_FALSE(RuntimeDirectory::open());
}

TEST_F(RuntimeDirectoryTest, open_folderThatOthersCanWrite_isRefused)
{
    fs::create_directory(configured());
    for (const fs::perms extra : {fs::perms::group_write, fs::perms::others_write}) {
        fs::permissions(configured(), fs::perms::owner_all | extra);
        EXPECT_FALSE(RuntimeDirectory::open());
    }
    fs::permissions(configured(), fs::perms::owner_all | fs::perms::others_read);
    EXPECT_TRUE(RuntimeDirectory::open());
}

TEST_F(RuntimeDirectoryTest, open_linkInTheFoldersPlace_isRefused)
{
    const std::string target = _runtime.path() + "/target";
    fs::create_directory(target);
    fs::create_directory_symlink(target, configured());
    EXPECT_FALSE(RuntimeDirectory::open());
    EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(RuntimeDirectoryTest, open_fileInTheFoldersPlace_isRefused)
{
    std::ofstream(configured()) << "no folder";
    EXPECT_FALSE(RuntimeDirectory::open());
}

} // namespace lumivora::test
