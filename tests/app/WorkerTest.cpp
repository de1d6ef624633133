// SPDX-License-Identifier: Apache-2.0
// The worker thread: order, bounds, stop. Built with the thread sanitizer too.
#include "app/core/Worker.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <numeric>
#include <thread>
#include <vector>

namespace {

/** Keeps a worker busy from entered() until open(). */
class Gate
{
public:
    Worker::Function function()
    {
        return [this](QObject *) {
            _entered.set_value();
            _opened.get_future().wait();
        };
    }
    void waitEntered() { _entered.get_future().wait(); }
    void open() { _opened.set_value(); }

private:
    std::promise<void> _entered;
    std::promise<void> _opened;
};

TEST(WorkerTest, create_returns_whenWorkIsAccepted)
{
    const auto worker = Worker::create(nullptr, false);
    int ran = 0;
    worker->runFunctionSync([&](QObject *) { ++ran; });
    EXPECT_EQ(ran, 1);
}

TEST(WorkerTest, function_receivesTheTarget_onTheWorkersThread)
{
    auto target = std::make_unique<QObject>();
    const auto worker = Worker::create(target.get(), true);
    QObject *received = nullptr;
    QThread *thread = nullptr;
    worker->runFunctionSync([&](QObject *object) {
        received = object;
        thread = QThread::currentThread();
    });
    EXPECT_EQ(received, target.get());
    EXPECT_EQ(thread, worker.get());
    EXPECT_EQ(target->thread(), worker.get());
    EXPECT_EQ(worker->thread(), worker.get());
}

TEST(WorkerTest, function_withoutTarget_receivesNull)
{
    const auto worker = Worker::create(nullptr, false);
    QObject other;
    QObject *received = &other;
    worker->runFunctionSync([&](QObject *object) { received = object; });
    EXPECT_EQ(received, nullptr);
}

TEST(WorkerTest, functions_waitingOrNot_runInPostingOrder)
{
    const auto worker = Worker::create(nullptr, false);
    std::vector<int> order;
    for (int i = 0; i < 100; ++i) {
        const auto append = [&order, i](QObject *) {
            order.push_back(i);
        };
        if (i % 7 == 0) {
            worker->runFunctionSync(append);
        } else {
            EXPECT_TRUE(worker->runFunctionAsync(append));
        }
    }
    worker->runFunctionSync([](QObject *) {});
    std::vector<int> expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

TEST(WorkerTest, runFunctionAsync_atTheBound_isRefusedUntilOneHasFinished)
{
    const auto worker = Worker::create(nullptr, false);
    worker->setMaxQueueSize(2);
    Gate gate;
    std::atomic<int> ran = 0;
    EXPECT_TRUE(worker->runFunctionAsync(gate.function()));
    gate.waitEntered(); // running counts as pending
    EXPECT_TRUE(worker->runFunctionAsync([&](QObject *) { ++ran; }));
    EXPECT_FALSE(worker->runFunctionAsync([&](QObject *) { ++ran; }));
    gate.open();
    worker->runFunctionSync([](QObject *) {});
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(worker->runFunctionAsync([&](QObject *) { ++ran; }));
    worker->runFunctionSync([](QObject *) {});
    EXPECT_EQ(ran, 2);
}

TEST(WorkerTest, runFunctionAsync_refused_destroysTheFunction)
{
    const auto worker = Worker::create(nullptr, false);
    worker->setMaxQueueSize(1);
    Gate gate;
    ASSERT_TRUE(worker->runFunctionAsync(gate.function()));
    auto captured = std::make_shared<int>(1);
    EXPECT_FALSE(worker->runFunctionAsync([captured](QObject *) {}));
    EXPECT_EQ(captured.use_count(), 1);
    gate.open();
}

TEST(WorkerTest, setMaxQueueSize_zeroOrNegative_isUnbounded)
{
    for (const int maximum : {0, -1, -5}) {
        const auto worker = Worker::create(nullptr, false);
        worker->setMaxQueueSize(maximum);
        Gate gate;
        ASSERT_TRUE(worker->runFunctionAsync(gate.function()));
        std::atomic<int> ran = 0;
        for (int i = 0; i < 1000; ++i) {
            EXPECT_TRUE(worker->runFunctionAsync([&](QObject *) { ++ran; }));
        }
        gate.open();
        worker->runFunctionSync([](QObject *) {});
        EXPECT_EQ(ran, 1000);
    }
}

TEST(WorkerTest, runFunctionSync_isNotBounded)
{
    const auto worker = Worker::create(nullptr, false);
    worker->setMaxQueueSize(1);
    Gate gate;
    ASSERT_TRUE(worker->runFunctionAsync(gate.function()));
    gate.waitEntered();
    std::atomic<int> ran = 0;
    std::vector<std::jthread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] { worker->runFunctionSync([&](QObject *) { ++ran; }); });
    }
    gate.open();
    callers.clear();
    EXPECT_EQ(ran, 4);
}

TEST(WorkerTest, runFunctionSyncEx_returnsTheResult)
{
    const auto worker = Worker::create(nullptr, false);
    EXPECT_EQ(
        worker->runFunctionSyncEx<QString>([](QObject *) { return QStringLiteral("answer"); }),
        QStringLiteral("answer"));
}

TEST(WorkerTest, runFunctionSync_fromTheWorkersOwnThread_runsAtOnce)
{
    const auto worker = Worker::create(nullptr, false);
    std::vector<int> order;
    worker->runFunctionSync([&](QObject *) {
        order.push_back(1);
        worker->runFunctionSync([&](QObject *) { order.push_back(2); });
        order.push_back(3);
    });
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(WorkerTest, runFunctionSync_fromTheWorkersOwnThread_leavesTheQueueOpenToOthers)
{
    const auto worker = Worker::create(nullptr, false);
    bool posted = false;
    worker->runFunctionSync([&](QObject *) {
        worker->runFunctionSync([&](QObject *) {
            // Would hang here if the nested function ran under the queue's lock.
            std::thread([&] { posted = worker->runFunctionAsync([](QObject *) {}); }).join();
        });
    });
    EXPECT_TRUE(posted);
}

TEST(WorkerTest, posts_afterStop_runNothing)
{
    const auto worker = Worker::create(nullptr, false);
    worker->stop();
    bool ran = false;
    EXPECT_FALSE(worker->runFunctionAsync([&](QObject *) { ran = true; }));
    worker->runFunctionSync([&](QObject *) { ran = true; });
    EXPECT_EQ(worker->runFunctionSyncEx<int>([&](QObject *) {
        ran = true;
        return 7;
    }),
              0);
    EXPECT_FALSE(ran);
}

TEST(WorkerTest, stop_withAQueue_discardsItAndReleasesItsCallers)
{
    const auto worker = Worker::create(nullptr, false);
    Gate gate;
    ASSERT_TRUE(worker->runFunctionAsync(gate.function()));
    gate.waitEntered();
    std::atomic<int> ran = 0;
    auto captured = std::make_shared<int>(1);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(worker->runFunctionAsync([&ran, captured](QObject *) { ++ran; }));
    }
    std::atomic<int> waiting = 0;
    std::vector<std::jthread> callers;
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            ++waiting;
            worker->runFunctionSync([&](QObject *) { ++ran; });
        });
    }
    while (waiting < 3) {
        std::this_thread::yield();
    }
    std::jthread stopper([&] { worker->stop(); });
    while (worker->runFunctionAsync([](QObject *) {})) {
        std::this_thread::yield();
    }
    gate.open();
    stopper.join();
    callers.clear(); // joins: everyone was released
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(WorkerTest, stop_twiceAndFromSeveralThreads_isHarmless)
{
    const auto worker = Worker::create(nullptr, false);
    {
        std::vector<std::jthread> stoppers;
        for (int i = 0; i < 4; ++i) {
            stoppers.emplace_back([&] { worker->stop(); });
        }
    }
    worker->stop();
    EXPECT_TRUE(worker->isFinished());
}

TEST(WorkerStressTest, manyPosters_withStopsInBetween_loseNothingAndHangNowhere)
{
    for (int round = 0; round < 40; ++round) {
        const auto worker = Worker::create(nullptr, round % 2 == 0);
        worker->setMaxQueueSize(round % 3 == 0 ? 2 : 0);
        std::atomic<int> ran = 0;
        std::atomic<bool> go = true;
        std::atomic<bool> inside = false;
        std::vector<std::jthread> posters;
        for (int p = 0; p < 4; ++p) {
            posters.emplace_back([&, p] {
                for (int i = 0; i < 500 && go; ++i) {
                    const auto work = [&](QObject *) {
                        EXPECT_FALSE(inside.exchange(true)); // one at a time
                        ++ran;
                        inside = false;
                    };
                    if (p % 2 == 0) {
                        worker->runFunctionAsync(work);
                    } else {
                        worker->runFunctionSync(work);
                    }
                }
            });
        }
        while (ran < 100) {
            std::this_thread::yield();
        }
        if (round % 4 == 0) {
            worker->stop(); // while they post and wait
        } else {
            worker->runFunctionSync([](QObject *) {});
        }
        go = false;
        posters.clear();
        worker->stop();
        EXPECT_FALSE(worker->runFunctionAsync([](QObject *) {}));
    }
}

} // namespace
