// Files and paths: whole-file reads and writes, the error chain, directories
// and the directory walk.
#include "base/files.h"

#include "base/text.h"
#include "base_test_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

TEST(Files, WriteAllThenReadAll) {
    temp_folder_t dir;
    std::string path = dir / "a.bin";
    data_t p = view_of(path);
    for (const std::string &content : {std::string(), std::string("line one\n\0binary\xFF", 17)}) {
        SCOPED_TRACE(content.size());
        u32 error = 0;
        // A new file needs no overwrite.
        EXPECT_EQ(file_write_all(&p, content.data(), content.size(), !content.empty(), &error), content.size());
        ASSERT_EQ(error, 0u);
        EXPECT_EQ(read_whole(path), content);
        data_t block;
        file_read_all(&block, &p, false, &error);
        ASSERT_EQ(error, 0u);
        EXPECT_EQ(block.reserved, content.size());
        EXPECT_EQ(text_of(block), content);
        data_virtual_free(&block);
        // Zero-terminated: one byte more, even for an empty file.
        file_read_all(&block, &p, true, &error);
        ASSERT_EQ(error, 0u);
        EXPECT_EQ(block.used, content.size() + 1);
        ASSERT_NE(block.bytes, nullptr);
        EXPECT_EQ(block.bytes[content.size()], 0);
        data_virtual_free(&block);
    }
    // Without overwrite an existing file stays; with it, it is truncated, not overlaid.
    u32 error = 0;
    file_write_all(&p, "second", 6, false, &error);
    EXPECT_EQ(error, (u32)file_error_open);
    EXPECT_EQ(read_whole(path).size(), 17u);
    error = 0;
    file_write_all(&p, "3rd", 3, true, &error);
    EXPECT_EQ(read_whole(path), "3rd");
}

TEST(Files, ErrorChain) {
    temp_folder_t dir;
    std::string missing = dir / "missing";
    data_t p = view_of(missing);
    u32 error = 0;
    data_t block;
    file_read_all(&block, &p, true, &error);
    EXPECT_EQ(error, (u32)file_error_open);
    EXPECT_EQ(block.bytes, nullptr);
    // Once set, nothing happens and the code stays.
    std::string other = dir / "other";
    data_t o = view_of(other);
    file_write_all(&o, "x", 1, true, &error);
    EXPECT_EQ(error, (u32)file_error_open);
    EXPECT_FALSE(fs::exists(other));

    EXPECT_EQ(error_of([](u32 *e) { file_size(file_handle_invalid, e); }), (u32)file_error_size);
    EXPECT_EQ(error_of([](u32 *e) { file_read(file_handle_invalid, 0, 1, nullptr, e); }),
              (u32)file_error_invalid_handle);
    EXPECT_EQ(error_of([](u32 *e) { file_close(file_handle_invalid, e); }), (u32)file_error_close_invalid);
    error = 7;
    file_close(file_handle_invalid, &error);
    EXPECT_EQ(error, 7u); // an earlier code is kept

    // A valid handle is closed even with the code set: open, fail, close.
    std::string path = dir / "exists";
    write_whole(path, "abc");
    data_t e = view_of(path);
    file_handle_t h = file_open(&e, false, false, &error);
    error = 99;
    file_close(h, &error);
    EXPECT_EQ(error, 99u);

    EXPECT_EQ(error_of([&](u32 *code) { file_delete(&p, code); }), (u32)file_error_delete);
    EXPECT_EQ(error_of([&](u32 *code) { file_delete(&e, code); }), 0u);
    EXPECT_FALSE(fs::exists(path));
}

TEST(Files, PathsThatCantBePassed) {
    for (const std::string &path : {"/tmp/" + std::string(2100, 'a'), std::string("/tmp/a\0b", 8)}) {
        data_t p = view_of(path);
        EXPECT_EQ(error_of([&](u32 *e) { file_open(&p, false, false, e); }), (u32)coding_error_no_room);
        EXPECT_EQ(error_of([&](u32 *e) { EXPECT_FALSE(directory_create(&p, e)); }), (u32)coding_error_no_room);
    }
    // 2047 bytes still fit with the terminator (and then simply don't exist).
    std::string longest = "/" + std::string(2046, 'b');
    data_t p = view_of(longest);
    u32 error = 0;
    EXPECT_FALSE(file_exists(&p, &error));
    EXPECT_EQ(error, 0u);
}

TEST(Files, DirectoriesAndKinds) {
    temp_folder_t dir;
    std::string sub = dir / "sub", file = dir / "plain", deep = dir / "no/such/parent";
    write_whole(file, "x");
    data_t s = view_of(sub), f = view_of(file), d = view_of(deep);
    u32 error = 0;
    EXPECT_TRUE(directory_create(&s, &error));
    EXPECT_TRUE(directory_create(&s, &error)); // exists already: success
    EXPECT_EQ(error, 0u);
    EXPECT_TRUE(directory_exists(&s, &error));
    EXPECT_FALSE(file_exists(&s, &error));
    EXPECT_TRUE(file_exists(&f, &error));
    EXPECT_FALSE(directory_exists(&f, &error));
    EXPECT_EQ(error_of([&](u32 *e) { EXPECT_FALSE(directory_create(&d, e)); }), (u32)file_error_directory_create);
    // Reading a folder as a file is a failed open.
    EXPECT_EQ(error_of([&](u32 *e) { file_open(&s, false, false, e); }), (u32)file_error_open);
}

namespace {

struct walk_fixture_t {
    temp_folder_t dir;
    data_t arena = data_virtual_alloc(1 << 20, 0);
    walk_fixture_t() {
        for (int i = 0; i < 10; i++) write_whole(dir / ("f" + std::to_string(i) + ".bin"), std::string(i, 'x'));
        write_whole(dir / "notes.txt", "hello");
        fs::create_directories(dir / "sub/inner");
        write_whole(dir / "sub/s.bin", "12");
        write_whole(dir / "sub/inner/deep.bin", "123");
        fs::create_directories(dir / "skip");
        write_whole(dir / "skip/hidden.bin", "1");
    }
    ~walk_fixture_t() { data_virtual_free(&arena); }

    std::set<std::string> walk(u32 capacity, const char *extensions, const char *excluded, u32 flags) {
        data_reset(&arena);
        file_list_t list;
        file_list_create(&list, &arena, capacity);
        data_t root = view_of(dir.path);
        data_t ext = data_from_pointer(extensions, string_length(extensions));
        data_t exc = data_from_pointer(excluded, string_length(excluded));
        file_list_directory(&list, &root, &ext, &exc, flags);
        std::set<std::string> names;
        // Paths are not terminated: each runs up to the next one.
        for (u32 i = 0; i < list.count; i++) {
            u8 *start = list.paths[i];
            u8 *end = i + 1 < list.count ? list.paths[i + 1] : data_end(list.text);
            std::string full((const char *)start, (size_t)(end - start));
            EXPECT_EQ(full.compare(0, dir.path.size(), dir.path), 0);
            EXPECT_EQ(full.substr(list.name_offsets[i]), fs::path(full).filename().string());
            names.insert(full.substr(dir.path.size() + 1) + (list.is_directory[i] ? "/" : ""));
            if (!list.is_directory[i]) {
                EXPECT_EQ(list.sizes[i], fs::file_size(full)) << full;
                EXPECT_GT(list.write_times[i], 1500000000u);
            }
        }
        return names;
    }
};

} // namespace

TEST(FilesWalk, ExtensionsCapacityExclusionsAndDots) {
    walk_fixture_t w;
    auto names = w.walk(100, "bin", "", file_walk_files);
    EXPECT_EQ(names.size(), 10u);
    EXPECT_TRUE(names.count("f3.bin"));
    EXPECT_EQ(w.walk(100, "txt, bin", "", file_walk_files).size(), 11u);
    EXPECT_TRUE(w.walk(100, "BIN", "", file_walk_files).empty()); // exact case
    EXPECT_EQ(w.walk(2, "", "", file_walk_files).size(), 2u);
    EXPECT_EQ(w.walk(0, "", "", file_walk_files).size(), 0u);

    names = w.walk(100, "bin", "skip", file_walk_recursive | file_walk_files);
    EXPECT_TRUE(names.count("sub/inner/deep.bin"));
    EXPECT_FALSE(names.count("skip/hidden.bin"));
    EXPECT_EQ(names.size(), 12u);
    EXPECT_EQ(w.walk(100, "", "", file_walk_directories), (std::set<std::string>{"sub/", "skip/"}));
    EXPECT_EQ(w.walk(100, "", "", file_walk_directories | file_walk_keep_dots),
              (std::set<std::string>{"sub/", "skip/", "./", "../"}));
    // Neither kind asked for: both are taken.
    EXPECT_EQ(w.walk(100, "", "sub,skip", 0).size(), 11u);
    names = w.walk(100, "", "", file_walk_recursive);
    EXPECT_TRUE(names.count("sub/inner/"));
    EXPECT_EQ(names.size(), 11u + 3u + 3u);
}

TEST(FilesWalk, MissingFolderAndTinyBlocks) {
    walk_fixture_t w;
    data_t arena = data_virtual_alloc(4096, 0);
    file_list_t list;
    file_list_create(&list, &arena, 10);
    data_t missing = data_literal("/nonexistent/folder/here");
    file_list_directory(&list, &missing, nullptr, nullptr, file_walk_files);
    EXPECT_EQ(list.count, 0u);

    // A text block too small for every path stops the walk without harm.
    u8 small[40];
    data_t text = {sizeof(small), 0, small};
    list.text = &text;
    data_t root = view_of(w.dir.path);
    file_list_directory(&list, &root, nullptr, nullptr, file_walk_files);
    EXPECT_LE(text.used, sizeof(small));
    data_virtual_free(&arena);

    // An arena too small for the arrays leaves a zero list and the arena as it was.
    u8 tiny_storage[16];
    data_t tiny = {sizeof(tiny_storage), 3, tiny_storage};
    file_list_create(&list, &tiny, 100);
    EXPECT_EQ(list.capacity, 0u);
    EXPECT_EQ(list.paths, nullptr);
    EXPECT_EQ(tiny.used, 3u);
}
