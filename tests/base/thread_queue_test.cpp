// The thread queue under load, the full ring, termination, and the scratch
// block. Nothing here waits on time: every wait is for a condition that the
// jobs themselves make true.
#include "base/thread_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

// Queues outlive the tests: a worker may still be on its way out after
// thread_terminate has returned.
thread_queue_t queues[8];
u32 next_queue = 0;
thread_queue_t *fresh_queue() {
    assert_true(next_queue < 8);
    return &queues[next_queue++];
}

void spin_until(const std::atomic<u32> &value, u32 wanted) {
    while (value.load() != wanted) std::this_thread::yield();
}

struct counter_job_t {
    std::atomic<u32> runs{0};
};
void run_counter(void *argument) { ((counter_job_t *)argument)->runs.fetch_add(1); }

std::atomic<u32> total_runs{0};
void run_total(void *) { total_runs.fetch_add(1); }

// Blocks until the gate opens, after counting itself as running.
struct gate_t {
    std::atomic<u32> running{0};
    std::atomic<u32> open{0};
};
void run_gated(void *argument) {
    gate_t *g = (gate_t *)argument;
    g->running.fetch_add(1);
    spin_until(g->open, 1);
}

} // namespace

TEST(ThreadQueue, ThousandsOfJobsEachRunExactlyOnce) {
    thread_queue_t *q = fresh_queue();
    thread_queue_init(q, 6);
    const u32 job_count = 20000;
    std::unique_ptr<counter_job_t[]> jobs(new counter_job_t[job_count]);
    for (u32 i = 0; i < job_count; i++) {
        // A full ring says so; the producer tries again once a job is taken.
        while (!thread_queue_work(q, run_counter, &jobs[i])) std::this_thread::yield();
    }
    thread_complete_queue(q); // the main thread helps until all are done
    for (u32 i = 0; i < job_count; i++) ASSERT_EQ(jobs[i].runs.load(), 1u) << "job " << i;
    EXPECT_EQ(q->queued_count.load(), 0u);
    EXPECT_EQ(q->completed_count.load(), 0u);
    thread_terminate(q);
}

TEST(ThreadQueue, RingHoldsAtMost1023Jobs) {
    thread_queue_t *q = fresh_queue();
    thread_queue_init(q, 0); // no workers: nothing is taken
    total_runs = 0;
    for (u32 i = 0; i < 1023; i++) ASSERT_TRUE(thread_queue_work(q, run_total, nullptr)) << i;
    EXPECT_FALSE(thread_queue_work(q, run_total, nullptr));
    EXPECT_EQ(q->queued_count.load(), 1023u);
    // Taking one frees one slot, exactly.
    EXPECT_TRUE(thread_do_work(q));
    EXPECT_EQ(total_runs.load(), 1u);
    EXPECT_TRUE(thread_queue_work(q, run_total, nullptr));
    EXPECT_FALSE(thread_queue_work(q, run_total, nullptr));
    thread_complete_queue(q);
    EXPECT_EQ(total_runs.load(), 1024u);
    EXPECT_FALSE(thread_do_work(q)); // empty
    thread_terminate(q);
}

TEST(ThreadQueue, CountIsLimitedToSevenAndAllRunInParallel) {
    thread_queue_t *q = fresh_queue();
    thread_queue_init(q, 20);
    EXPECT_EQ(q->thread_count, 7u);
    // Seven jobs that each wait for all seven to be running: this ends only
    // if seven workers run them side by side.
    gate_t gate;
    for (u32 i = 0; i < 7; i++) ASSERT_TRUE(thread_queue_work(q, run_gated, &gate));
    spin_until(gate.running, 7);
    gate.open = 1;
    thread_complete_queue(q);
    thread_terminate(q);
}

TEST(ThreadQueue, TerminateDropsJobsNotStartedAndNothingRunsAfter) {
    thread_queue_t *q = fresh_queue();
    thread_queue_init(q, 3);
    gate_t gate;
    for (u32 i = 0; i < 3; i++) ASSERT_TRUE(thread_queue_work(q, run_gated, &gate));
    spin_until(gate.running, 3); // every worker is busy
    total_runs = 0;
    for (u32 i = 0; i < 100; i++) ASSERT_TRUE(thread_queue_work(q, run_total, nullptr));

    std::thread stopper([q] { thread_terminate(q); });
    spin_until(q->terminate, 1);
    gate.open = 1; // the running jobs finish; the workers see `terminate` first
    stopper.join();
    EXPECT_EQ(q->terminated_count.load(), 3u);
    EXPECT_EQ(total_runs.load(), 0u);

    i32 read_before = q->read_index.load();
    thread_queue_work(q, run_total, nullptr);
    EXPECT_EQ(q->read_index.load(), read_before);
    EXPECT_EQ(total_runs.load(), 0u);
}

TEST(ThreadQueue, TerminateRightAfterManyWakeUps) {
    // Many releases that no worker waited for leave the semaphore counted
    // up; termination must still wake everyone.
    for (u32 round = 0; round < 2; round++) {
        thread_queue_t *q = fresh_queue();
        thread_queue_init(q, 7);
        total_runs = 0;
        for (u32 i = 0; i < 500; i++) {
            while (!thread_queue_work(q, run_total, nullptr)) std::this_thread::yield();
        }
        thread_terminate(q);
        EXPECT_EQ(q->terminated_count.load(), 7u);
        EXPECT_LE(total_runs.load(), 500u);
    }
}

TEST(ScratchBlock, TakeAndGiveBack) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    scratch_block_init(0x10000);
    data_t a = scratch_block_take();
    ASSERT_NE(a.bytes, nullptr);
    EXPECT_EQ(a.reserved, 0x10000u);
    EXPECT_EQ(a.used, 0u);
    a.bytes[0xFFFF] = 1;
    scratch_block_give_back();
    data_t b = scratch_block_take();
    EXPECT_EQ(b.bytes, a.bytes);
    EXPECT_EQ(b.used, 0u);
    EXPECT_DEATH(scratch_block_take(), "taken already");
    scratch_block_give_back();
    EXPECT_DEATH(scratch_block_give_back(), "not taken");
    EXPECT_DEATH(scratch_block_init(16), "exists already");
}
