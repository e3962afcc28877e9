// Copyright (C) 2026 The libvircam Authors

// The virtual clock keeps the order real time would give, at no real cost.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "VirtualClock.h"

namespace {

using namespace std::chrono_literals;
using vircam_testclock::VirtualClock;

TEST(VirtualClock, SleepPassesVirtualTimeOnly) {
    VirtualClock clock;
    const auto start = clock.Now();
    const auto realStart = std::chrono::steady_clock::now();
    clock.SleepFor(3s);
    EXPECT_EQ(clock.Now() - start, 3s);
    EXPECT_LT(std::chrono::steady_clock::now() - realStart, 1s);
}

// An answer due just before a deadline is seen by the waiter; one due just
// after is not.
void AnswerAround(std::chrono::nanoseconds answerAt, bool expectAnswer) {
    VirtualClock clock;
    std::mutex mutex;
    std::condition_variable cond;
    bool answered = false;
    const auto start = clock.Now();
    std::thread answerer([&] {
        clock.SleepFor(answerAt);
        std::lock_guard<std::mutex> lock(mutex);
        answered = true;
        cond.notify_one();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        const auto deadline = start + 3s;
        while (!answered && clock.WaitUntil(cond, lock, deadline) != std::cv_status::timeout) {
        }
        EXPECT_EQ(answered, expectAnswer);
        EXPECT_EQ(clock.Now() - start, expectAnswer ? answerAt : 3s);
    }
    answerer.join();
}

TEST(VirtualClock, AnswerJustBeforeTheDeadlineIsSeen) {
    AnswerAround(3s - 1ns, true);
}

TEST(VirtualClock, AnswerJustAfterTheDeadlineIsNot) {
    AnswerAround(3s + 1ns, false);
}

TEST(VirtualClock, TimeStandsStillWhileAThreadRuns) {
    VirtualClock clock;
    std::atomic<bool> stop{false};
    const auto start = clock.Now();
    std::thread busy([&] {
        const auto until = std::chrono::steady_clock::now() + 50ms;
        while (std::chrono::steady_clock::now() < until) {
        }
        stop = true;
    });
    std::thread sleeper([&] { clock.SleepFor(1s); });
    while (!stop) {
        EXPECT_EQ(clock.Now(), start);
        std::this_thread::yield();
    }
    busy.join();
    sleeper.join();
    EXPECT_EQ(clock.Now() - start, 1s);
}

TEST(VirtualClock, SettleWaitsForEveryTimedEvent) {
    VirtualClock clock;
    std::atomic<int> done{0};
    std::thread chain([&] {
        for (int i = 0; i < 300; ++i) {
            clock.SleepFor(5ms);
        }
        done = 1;
    });
    clock.Settle();
    EXPECT_EQ(done.load(), 1);
    EXPECT_GE(clock.Jumps(), 300u);
    chain.join();
}

}  // namespace
