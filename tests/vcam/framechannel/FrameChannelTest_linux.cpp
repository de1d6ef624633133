// SPDX-License-Identifier: Apache-2.0
// The channel as a file: who may have it, what happens to files that are in the way, and that no
// producer, dead or alive, spoils another's.

#include "tests/vcam/framechannel/ActorProcess.h"
#include "tests/vcam/framechannel/RawSection.h"
#include "vcam/framechannel/FrameChannel.h"
#include "vcam/framechannel/FrameChannelReader.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace lumivora::test {

namespace {

namespace fs = std::filesystem;

constexpr auto kName = "LumivoraCamVideo";
constexpr std::uintmax_t kSectionBytes = 24768; // of 64 x 32 pixels

std::unique_ptr<FrameChannel> createChannel()
{
    return FrameChannel::create(64, 32, 330000);
}

class ChannelFileTest : public ::testing::Test
{
protected:
    [[nodiscard]] fs::path folder() const { return _runtime.path() + "/lumivora-control"; }
    [[nodiscard]] fs::path file() const { return folder() / kName; }

    void makeFolder() const
    {
        fs::create_directory(folder());
        fs::permissions(folder(), fs::perms::owner_all);
    }

    void expectOnlyTheChannel() const
    {
        std::vector<fs::path> names;
        for (const auto &entry : fs::directory_iterator(folder())) {
            names.push_back(entry.path().filename());
        }
        EXPECT_EQ(names, std::vector<fs::path>{kName});
    }

    const PrivateRuntime _runtime;
};

ino_t inodeOf(const fs::path &path)
{
    struct stat info = {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0);
    return info.st_ino;
}

std::size_t entries(const char *folder)
{
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

std::ptrdiff_t mappingsOf(const std::string &name)
{
    std::ifstream maps("/proc/self/maps");
    std::ptrdiff_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find(name) != std::string::npos ? 1 : 0;
    }
    return count;
}

/** Lets no file grow beyond a size while it lives: what a full disk does, without one. */
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : _formerAction(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &_former);
        struct rlimit limit = _former;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &_former);
        std::signal(SIGXFSZ, _formerAction);
    }

    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    struct rlimit _former = {};
    void (*_formerAction)(int);
};

} // namespace

TEST_F(ChannelFileTest, create_fileAndFolder_areTheUsersAlone)
{
    const mode_t former = ::umask(0);
    const auto channel = createChannel();
    ::umask(former);
    ASSERT_TRUE(channel);
    EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(folder()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::file_size(file()), kSectionBytes);
    expectOnlyTheChannel();
}

TEST_F(ChannelFileTest, create_hdFormat_fileHasTheExactSizeAndItsSpace)
{
    const auto channel = FrameChannel::create(1280, 720, 330000);
    ASSERT_TRUE(channel);
    struct stat info = {};
    ASSERT_EQ(::stat(file().c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 11059392);
    EXPECT_GE(info.st_blocks * 512, 11059392) << "a hole could turn into a fault on a full disk";
}

TEST_F(ChannelFileTest, close_removesTheFile)
{
    auto channel = createChannel();
    ASSERT_TRUE(channel);
    channel.reset();
    EXPECT_TRUE(fs::is_empty(folder()));
}

TEST_F(ChannelFileTest, close_fileOfAnotherInItsPlace_staysThere)
{
    auto channel = createChannel();
    ASSERT_TRUE(channel);
    fs::remove(file());
    auto other = createChannel();
    ASSERT_TRUE(other) << "a removed channel is in nobody's way";
    const ino_t inode = inodeOf(file());
    channel.reset();
    EXPECT_EQ(inodeOf(file()), inode);
}

TEST_F(ChannelFileTest, create_filesInTheWay_areReplacedAndNotChanged)
{
    const auto garbage = [](std::size_t bytes) {
        return std::vector(bytes, std::byte{0xA5});
    };
    std::vector<std::vector<std::byte>> contents = {garbage(0), garbage(1), garbage(24768),
                                                    garbage(24767), garbage(100000)};
    {
        // What a producer leaves that died in the middle of its work: a sound, streaming channel.
        const auto channel = createChannel();
        ASSERT_TRUE(channel);
        const auto raw = RawSection::open(kName);
        ASSERT_TRUE(raw);
        raw->set(0x08, 2);
        contents.push_back(raw->copy());
    }
    for (const auto &content : contents) {
        const auto former = RawSection::make(kName, content);
        ASSERT_TRUE(former);
        const ino_t inode = inodeOf(file());

        const auto channel = createChannel();
        ASSERT_TRUE(channel);
        EXPECT_EQ(fs::file_size(file()), kSectionBytes);
        EXPECT_NE(inodeOf(file()), inode);
        EXPECT_EQ(former->copy(), content) << "others may have it mapped";
        const auto reader = FrameChannelReader::open();
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->state(), ChannelState::Created);
        expectOnlyTheChannel();
    }
}

TEST_F(ChannelFileTest, create_lockedFileOfAnyContent_isLeftAlone)
{
    makeFolder();
    std::ofstream(file()) << "whatever";
    const int other = ::open(file().c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(other, F_OFD_SETLK, &lock), 0);
    const ino_t inode = inodeOf(file());

    EXPECT_FALSE(createChannel());
    EXPECT_EQ(inodeOf(file()), inode);
    EXPECT_EQ(fs::file_size(file()), 8U);
    expectOnlyTheChannel();

    ::close(other);
    EXPECT_TRUE(createChannel());
}

TEST_F(ChannelFileTest, create_linkInTheWay_isReplacedAndNotFollowed)
{
    makeFolder();
    const fs::path target = _runtime.path() + "/target";
    std::ofstream(target) << "keep";
    fs::create_symlink(target, file());
    const auto channel = createChannel();
    ASSERT_TRUE(channel);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(file())));
    EXPECT_EQ(fs::file_size(target), 4U);
}

TEST_F(ChannelFileTest, create_pipeInTheWay_isReplacedWithoutWaiting)
{
    makeFolder();
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_FALSE(FrameChannelReader::open());
    EXPECT_TRUE(createChannel());
}

TEST_F(ChannelFileTest, create_folderInTheWay_returnsNone)
{
    makeFolder();
    fs::create_directory(file());
    EXPECT_FALSE(createChannel());
    EXPECT_FALSE(FrameChannelReader::open());
    expectOnlyTheChannel();
}

TEST_F(ChannelFileTest, create_leftoverOfAnUnfinishedCreation_isNoObstacle)
{
    makeFolder();
    std::ofstream(file().string() + ".new") << "half";
    const auto channel = createChannel();
    ASSERT_TRUE(channel);
    expectOnlyTheChannel();
}

TEST_F(ChannelFileTest, create_noSpace_returnsNoneAndLeavesNothing)
{
    {
        const FileSizeLimit limit(kSectionBytes - 1);
        EXPECT_FALSE(createChannel());
    }
    EXPECT_TRUE(fs::is_empty(folder()));
    EXPECT_TRUE(createChannel());
}

TEST_F(ChannelFileTest, create_producerKilled_isReplacedAndItsReadersNotice)
{
    ActorProcess producer({QStringLiteral("produce")});
    ASSERT_EQ(producer.readLine(), "created");
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    EXPECT_TRUE(reader->producerAlive());
    EXPECT_TRUE(reader->isCurrent());

    producer.kill();
    EXPECT_EQ(reader->state(), ChannelState::Created) << "it could not say goodbye";
    EXPECT_FALSE(reader->producerAlive());
    EXPECT_TRUE(reader->isCurrent());

    const auto channel = createChannel();
    ASSERT_TRUE(channel);
    EXPECT_FALSE(reader->isCurrent());
    EXPECT_FALSE(reader->producerAlive());
    const auto fresh = FrameChannelReader::open();
    ASSERT_TRUE(fresh);
    EXPECT_TRUE(fresh->isCurrent());
    EXPECT_TRUE(fresh->producerAlive());
}

TEST_F(ChannelFileTest, create_whileReadersHoldAClosedChannel_makesANewOne)
{
    auto first = createChannel();
    ASSERT_TRUE(first);
    const auto reader = FrameChannelReader::open();
    ASSERT_TRUE(reader);
    first.reset();
    EXPECT_FALSE(reader->isCurrent());
    const auto second = createChannel();
    ASSERT_TRUE(second);
    const std::vector<std::byte> pixels(8192);
    second->writeFrame(pixels.data(), pixels.size(), 0);
    EXPECT_EQ(reader->state(), ChannelState::Closed);
    EXPECT_FALSE(reader->isCurrent());
}

TEST_F(ChannelFileTest, open_fileOneByteOff_isRefused)
{
    const auto channel = createChannel();
    ASSERT_TRUE(channel);
    const auto raw = RawSection::open(kName);
    ASSERT_TRUE(raw);
    std::vector<std::byte> content = raw->copy();
    fs::remove(file());
    EXPECT_TRUE(RawSection::make(kName, content) && FrameChannelReader::open());
    content.pop_back();
    EXPECT_TRUE(RawSection::make(kName, content) && !FrameChannelReader::open());
    content.resize(95);
    EXPECT_TRUE(RawSection::make(kName, content) && !FrameChannelReader::open());
    content.clear();
    EXPECT_TRUE(RawSection::make(kName, content) && !FrameChannelReader::open());
}

TEST_F(ChannelFileTest, create_manyThreadsAndProcessesAtOnce_exactlyOneWins)
{
    std::vector<std::unique_ptr<ActorProcess>> racers;
    for (int i = 0; i < 4; ++i) {
        racers.push_back(std::make_unique<ActorProcess>(
            QStringList{QStringLiteral("race"), QStringLiteral("6")}));
        ASSERT_EQ(racers.back()->readLine(), "ready");
    }
    for (int round = 0; round < 25; ++round) {
        if (round % 2 == 1) { // every other time a dead producer's file is in the way
            ASSERT_TRUE(RawSection::make(kName, std::vector<std::byte>(24768)));
        }
        for (const auto &racer : racers) {
            racer->go();
        }
        int winners = 0;
        for (const auto &racer : racers) {
            winners += racer->readLine().toInt();
        }
        EXPECT_EQ(winners, 1) << "round " << round;
        expectOnlyTheChannel();
        for (const auto &racer : racers) {
            racer->go(); // to let go of it
        }
        for (const auto &racer : racers) {
            ASSERT_EQ(racer->readLine(), "closed");
        }
        EXPECT_TRUE(fs::is_empty(folder()));
    }
}

TEST_F(ChannelFileTest, createAndClose_manyTimes_leavesNoDescriptorAndNoMapping)
{
    const std::size_t descriptors = entries("/proc/self/fd");
    for (int i = 0; i < 200; ++i) {
        const auto channel = createChannel();
        ASSERT_TRUE(channel);
        ASSERT_TRUE(FrameChannelReader::open());
        ASSERT_FALSE(createChannel());
        EXPECT_EQ(mappingsOf(kName), 1);
    }
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    EXPECT_EQ(mappingsOf(kName), 0);
}

} // namespace lumivora::test
