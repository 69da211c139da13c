// thread_queue.h - a few worker threads fed by a lock-free ring of jobs with
// one producer (the main thread); and the program's one scratch block.
#pragma once

#include "base/memory.h"
#include "os/os_core.h"

#include <atomic>

typedef void thread_job_function_t(void *argument);

struct thread_job_t {
    thread_job_function_t *function;
    void *argument;
};

struct thread_queue_t;

struct thread_info_t {
    thread_queue_t *queue;
    u32 index;
    u32 thread_id;
    std::atomic<u32> waiting;
};

constexpr u32 thread_queue_capacity = 1024;
constexpr u32 thread_queue_max_threads = 7;

struct thread_queue_t {
    os_semaphore_t *semaphore;
    os_event_t *completed_event;
    os_event_t *terminated_event;
    thread_job_t jobs[thread_queue_capacity];
    thread_info_t threads[thread_queue_max_threads];
    std::atomic<i32> read_index;
    std::atomic<i32> write_index;
    std::atomic<u32> completed_count;
    std::atomic<u32> queued_count;
    std::atomic<u32> terminate;
    std::atomic<u32> terminated_count;
    u32 thread_count;
};

extern thread_queue_t thread_queue;

void thread_queue_init(thread_queue_t *queue, u32 count);
bool thread_queue_work(thread_queue_t *queue, thread_job_function_t *function, void *argument);
bool thread_do_work(thread_queue_t *queue);
void thread_complete_queue(thread_queue_t *queue);
void thread_terminate(thread_queue_t *queue);

void scratch_block_init(u64 size);
data_t scratch_block_take();
void scratch_block_give_back();
