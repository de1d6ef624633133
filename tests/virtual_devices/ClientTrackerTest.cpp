// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/ClientTracker.h"

#include <gmock/gmock.h>

namespace lumivora {

namespace {

constexpr std::uint32_t kCamera = 40;

class ClientTrackerTest : public ::testing::Test
{
protected:
    ClientTrackerTest() { tracker.setSource(kCamera); }

    ClientTracker tracker;
};

} // namespace

TEST_F(ClientTrackerTest, count_linkToAPeerThatDoesNotRun_isNoClient)
{
    tracker.addLink(100, kCamera, 50);
    EXPECT_EQ(tracker.count(), 0);
    EXPECT_THAT(tracker.peers(), ::testing::ElementsAre(50));
}

TEST_F(ClientTrackerTest, count_peerStartsAndPauses_follows)
{
    tracker.addLink(100, kCamera, 50);
    tracker.setRunning(50, true);
    EXPECT_EQ(tracker.count(), 1);
    tracker.setRunning(50, false);
    EXPECT_EQ(tracker.count(), 0);
}

TEST_F(ClientTrackerTest, count_twoLinksOfOnePeer_areOneClient)
{
    tracker.addLink(100, kCamera, 50);
    tracker.addLink(101, kCamera, 50);
    tracker.setRunning(50, true);
    EXPECT_EQ(tracker.count(), 1);
    tracker.remove(100);
    EXPECT_EQ(tracker.count(), 1);
    tracker.remove(101);
    EXPECT_EQ(tracker.count(), 0);
}

TEST_F(ClientTrackerTest, count_linksOfOtherNodes_areIgnored)
{
    tracker.addLink(100, 41, 50);
    tracker.setRunning(50, true);
    EXPECT_EQ(tracker.count(), 0);
    EXPECT_TRUE(tracker.peers().empty());
}

TEST_F(ClientTrackerTest, count_severalPeers_countsThoseThatRun)
{
    for (std::uint32_t peer = 50; peer < 54; ++peer) {
        tracker.addLink(100 + peer, kCamera, peer);
        tracker.setRunning(peer, peer != 52);
    }
    EXPECT_EQ(tracker.count(), 3);
    tracker.remove(51); // killed: its node goes, the link a moment later
    EXPECT_EQ(tracker.count(), 2);
}

TEST_F(ClientTrackerTest, clear_afterAReconnect_forgetsEverything)
{
    tracker.addLink(100, kCamera, 50);
    tracker.setRunning(50, true);
    tracker.clear();
    tracker.setSource(kCamera);
    EXPECT_EQ(tracker.count(), 0);
    EXPECT_TRUE(tracker.peers().empty());
}

} // namespace lumivora
