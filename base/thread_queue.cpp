// thread_queue.cpp - a few worker threads fed by a lock-free ring of jobs.
//
// One producer (the main thread) writes jobs and moves `write_index` with a
// release store; consumers take jobs by a compare-and-swap on `read_index`.
// A consumer copies the job before its swap, so the producer may reuse a slot
// as soon as the index has moved past it. Workers sleep on a semaphore when
// the ring is empty. No lock is taken on the queue itself.
#include "base/thread_queue.h"

#include "base/profiler.h"

thread_queue_t thread_queue;

static constexpr i32 thread_queue_mask = (i32)thread_queue_capacity - 1;
static_assert((thread_queue_capacity & (thread_queue_capacity - 1)) == 0, "the ring is a power of two");

// Job slots are read by consumers that may lose the race for them, while the
// producer refills them; relaxed atomic accesses keep that well defined. The
// index stores and loads give the ordering.
static void thread_job_store(thread_job_t *slot, thread_job_function_t *function, void *argument) {
    __atomic_store_n(&slot->function, function, __ATOMIC_RELAXED);
    __atomic_store_n(&slot->argument, argument, __ATOMIC_RELAXED);
}

static thread_job_t thread_job_load(thread_job_t *slot) {
    thread_job_t job;
    job.function = __atomic_load_n(&slot->function, __ATOMIC_RELAXED);
    job.argument = __atomic_load_n(&slot->argument, __ATOMIC_RELAXED);
    return job;
}

bool thread_queue_work(thread_queue_t *queue, thread_job_function_t *function, void *argument) {
    PROFILE_SCOPE(thread_queue_work);
    i32 write = queue->write_index.load(std::memory_order_relaxed);
    i32 next = (write + 1) & thread_queue_mask;
    if (next == queue->read_index.load(std::memory_order_acquire)) return false;
    thread_job_store(&queue->jobs[write], function, argument);
    queue->queued_count.fetch_add(1, std::memory_order_relaxed);
    queue->write_index.store(next, std::memory_order_release);
    {
        PROFILE_SCOPE(thread_queue_signal);
        // With more jobs queued than the semaphore may count, the release
        // fails; a worker that finishes a job takes the next one without
        // waiting, so nothing is lost.
        os_semaphore_release(queue->semaphore, 1);
    }
    return true;
}

bool thread_do_work(thread_queue_t *queue) {
    PROFILE_SCOPE(thread_do_work);
    i32 read = queue->read_index.load(std::memory_order_acquire);
    if (read == queue->write_index.load(std::memory_order_acquire)) return false;
    thread_job_t job = thread_job_load(&queue->jobs[read]);
    i32 next = (read + 1) & thread_queue_mask;
    if (queue->read_index.compare_exchange_strong(read, next, std::memory_order_acq_rel,
                                                  std::memory_order_relaxed)) {
        {
            PROFILE_SCOPE(thread_user_function);
            job.function(job.argument);
        }
        u32 completed = queue->completed_count.fetch_add(1, std::memory_order_acq_rel) + 1;
        if (completed == queue->queued_count.load(std::memory_order_acquire)) {
            PROFILE_SCOPE(thread_queue_completed_signal);
            os_event_signal(queue->completed_event);
        }
    }
    return true;
}

static void thread_loop(void *argument) {
    thread_info_t *info = (thread_info_t *)argument;
    thread_queue_t *queue = info->queue;
    u32 error = 0;
    profiler_thread_init(profiler_thread_worker, 1000, &error);
    info->thread_id = os_thread_id();
    // Read once: after this thread has counted itself out, the queue may
    // already be started again by the main thread.
    os_event_t *terminated_event = queue->terminated_event;
    u32 thread_count = queue->thread_count;
    while (!queue->terminate.load(std::memory_order_acquire)) {
        mark_collapse_start(label_thread_loop);
        if (!thread_do_work(queue)) {
            info->waiting.store(1, std::memory_order_relaxed);
            mark_start(label_thread_wait_for_work);
            os_semaphore_wait(queue->semaphore);
            mark_end(label_thread_wait_for_work);
            info->waiting.store(0, std::memory_order_relaxed);
        }
        mark_collapse_end(label_thread_loop);
    }
    u32 terminated = queue->terminated_count.fetch_add(1, std::memory_order_acq_rel) + 1;
    if (terminated == thread_count) {
        // The span closes before the signal: once signalled, the main thread
        // may already be checking that every span has ended.
        mark_start(label_thread_queue_terminated_signal);
        mark_end(label_thread_queue_terminated_signal);
        os_event_signal(terminated_event);
    }
}

void thread_queue_init(thread_queue_t *queue, u32 count) {
    if (count > thread_queue_max_threads) count = thread_queue_max_threads;
    queue->read_index.store(0);
    queue->write_index.store(0);
    queue->completed_count.store(0);
    queue->queued_count.store(0);
    queue->terminate.store(0);
    queue->terminated_count.store(0);
    queue->thread_count = count;
    queue->semaphore = os_semaphore_create(0, count);
    queue->completed_event = os_event_create();
    queue->terminated_event = os_event_create();
    for (u32 i = 0; i < count; i++) {
        thread_info_t *info = &queue->threads[i];
        info->queue = queue;
        info->index = i;
        info->thread_id = 0;
        info->waiting.store(0);
        os_thread_start(thread_loop, info);
    }
}

void thread_complete_queue(thread_queue_t *queue) {
    PROFILE_SCOPE(thread_complete_queue);
    while (queue->completed_count.load(std::memory_order_acquire) !=
           queue->queued_count.load(std::memory_order_acquire)) {
        if (!thread_do_work(queue)) {
            PROFILE_SCOPE(thread_wait_for_completion);
            os_event_wait(queue->completed_event);
        }
    }
    queue->completed_count.store(0);
    queue->queued_count.store(0);
}

void thread_terminate(thread_queue_t *queue) {
    PROFILE_SCOPE(thread_terminate);
    queue->terminated_count.store(0, std::memory_order_relaxed);
    queue->terminate.fetch_add(1, std::memory_order_acq_rel);
    {
        PROFILE_SCOPE(thread_terminate_signal);
        // One release per thread, each on its own: when wake-ups of queued
        // jobs are still counted, a single release of `thread_count` would
        // pass the maximum and fail as a whole, and a worker about to wait
        // could sleep for ever. Single releases fill the count up to the
        // maximum, which is one pass for every worker.
        for (u32 i = 0; i < queue->thread_count; i++) os_semaphore_release(queue->semaphore, 1);
    }
    {
        PROFILE_SCOPE(thread_wait_for_termination);
        while (queue->terminated_count.load(std::memory_order_acquire) != queue->thread_count) {
            os_event_wait(queue->terminated_event);
        }
    }
    os_semaphore_close(queue->semaphore);
    queue->semaphore = nullptr;
}

// ---- the scratch block ---------------------------------------------------------------------

static data_t scratch_block;
static bool scratch_block_taken;

void scratch_block_init(u64 size) {
    assert_message(!scratch_block.bytes, "The scratch block exists already.");
    scratch_block = data_virtual_alloc(size, 0);
    assert_message(scratch_block.bytes, "No memory for the scratch block.");
}

data_t scratch_block_take() {
    assert_message(!scratch_block_taken, "The scratch block is taken already.");
    if (scratch_block_taken) return data_t{};
    scratch_block_taken = true;
    scratch_block.used = 0;
    return scratch_block;
}

void scratch_block_give_back() {
    assert_message(scratch_block_taken, "The scratch block was not taken.");
    scratch_block_taken = false;
}
