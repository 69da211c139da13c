// file_storage.cpp - the first-fit allocator of small long-lived strings.
#include "net/file_storage.h"

void file_storage_init(file_storage_t *storage, u64 reserve_size, u64 commit_step, u64 unit) {
    assert_true(unit > 0);
    assert_true(reserve_size % memory_allocation_granularity == 0 && reserve_size % unit == 0);
    assert_true(commit_step % memory_page_size == 0 && commit_step % unit == 0);
    *storage = file_storage_t{};
    storage->unit = unit;
    storage->commit_step = commit_step;

    storage->memory = data_address_space_reserve(reserve_size, 0);
    assert_message(data_address_space_commit(&storage->memory, commit_step), "No memory for the file storage.");

    u64 node_reserve = (reserve_size / unit) * sizeof(file_storage_node_t);
    storage->node_memory = data_address_space_reserve(node_reserve, 0);
    u64 node_step = (commit_step / unit) * sizeof(file_storage_node_t);
    if (node_step > storage->node_memory.reserved) node_step = storage->node_memory.reserved;
    assert_message(data_address_space_commit(&storage->node_memory, node_step),
                   "No memory for the file storage's nodes.");
    storage->nodes = data_t{storage->node_memory.used, 0, storage->node_memory.bytes};

    file_storage_node_t *all = (file_storage_node_t *)data_push(&storage->nodes, sizeof(file_storage_node_t), 8);
    assert_true(all);
    all->size = reserve_size;
    all->address = (u64)storage->memory.bytes;
    all->next = nullptr;
    storage->free_list = all;
}

static file_storage_node_t *file_storage_take_node(file_storage_t *storage) {
    if (file_storage_node_t *node = storage->spare_nodes) {
        storage->spare_nodes = node->next;
        return node;
    }
    void *node = data_push(&storage->nodes, sizeof(file_storage_node_t), 8);
    if (!node) {
        u64 node_step = (storage->commit_step / storage->unit) * sizeof(file_storage_node_t);
        u64 room = storage->node_memory.reserved - storage->node_memory.used;
        if (node_step > room) node_step = room;
        assert_message(node_step > 0 && data_address_space_commit(&storage->node_memory, node_step),
                       "The file storage ran out of nodes.");
        storage->nodes.reserved = storage->node_memory.used;
        node = data_push(&storage->nodes, sizeof(file_storage_node_t), 8);
        assert_true(node);
    }
    return (file_storage_node_t *)node;
}

static void file_storage_spare_node(file_storage_t *storage, file_storage_node_t *node) {
    node->next = storage->spare_nodes;
    storage->spare_nodes = node;
}

void *file_storage_alloc(file_storage_t *storage, u64 size) {
    file_storage_node_t *previous = nullptr;
    file_storage_node_t *node = storage->free_list;
    while (node && node->size < size) {
        previous = node;
        node = node->next;
    }
    if (!node) return nullptr;
    u64 rounded = align_up(size ? size : 1, storage->unit);

    u64 address = node->address;
    u64 committed_end = (u64)storage->memory.bytes + storage->memory.used;
    if (address + rounded > committed_end) {
        u64 missing = align_up(address + rounded - committed_end, storage->commit_step);
        if (missing > storage->memory.reserved - storage->memory.used) {
            missing = storage->memory.reserved - storage->memory.used;
        }
        assert_message(data_address_space_commit(&storage->memory, missing), "The file storage could not commit.");
    }
    if (node->size <= rounded) {
        if (previous) previous->next = node->next;
        else storage->free_list = node->next;
        file_storage_spare_node(storage, node);
    } else {
        node->size -= rounded;
        node->address += rounded;
    }
    return (void *)address;
}

bool file_storage_owns(const file_storage_t *storage, const void *address) {
    u64 a = (u64)address;
    u64 start = (u64)storage->memory.bytes;
    return storage->memory.bytes && a >= start && a < start + storage->memory.used;
}

void file_storage_free_unmerged(file_storage_t *storage, void *address, u64 size) {
    assert_message(file_storage_owns(storage, address), "Freeing memory not allocated by this allocator.");
    file_storage_node_t *node = file_storage_take_node(storage);
    node->size = align_up(size ? size : 1, storage->unit);
    node->address = (u64)address;
    node->next = storage->free_list;
    storage->free_list = node;
}

void file_storage_free(file_storage_t *storage, void *address, u64 size) {
    assert_message(file_storage_owns(storage, address), "Freeing memory not allocated by this allocator.");
    u64 rounded = align_up(size ? size : 1, storage->unit);
    u64 start = (u64)address;
    u64 end = start + rounded;

    file_storage_node_t *first = storage->free_list;
    while (first && first->address != end && first->address + first->size != start) first = first->next;
    if (!first) {
        file_storage_free_unmerged(storage, address, size);
        return;
    }
    if (first->address == end) first->address = start;
    first->size += rounded;

    // The grown range may now touch a second free range, above or below it.
    file_storage_node_t *previous = first;
    file_storage_node_t *second = first->next;
    u64 first_end = first->address + first->size;
    while (second && second->address != first_end && second->address + second->size != first->address) {
        previous = second;
        second = second->next;
    }
    (void)previous;
    if (!second) return;
    if (second->address + second->size == first->address) first->address = second->address;
    first->size += second->size;
    // Nodes between the two leave the list here with their ranges.
    first->next = second->next;
    file_storage_spare_node(storage, second);
}

u64 file_storage_free_size(const file_storage_t *storage) {
    u64 total = 0;
    for (const file_storage_node_t *node = storage->free_list; node; node = node->next) total += node->size;
    return total;
}

u32 file_storage_free_count(const file_storage_t *storage) {
    u32 count = 0;
    for (const file_storage_node_t *node = storage->free_list; node; node = node->next) count++;
    return count;
}
