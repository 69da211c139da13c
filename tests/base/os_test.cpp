// The Linux system layer: semaphores and events, places, spawning.
// Pages and directories are tried through the memory and file layers' tests.
#include "os/os_core.h"
#include "os/os_process.h"

#include "base_test_util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

namespace {

// Sets an environment variable for the length of a scope.
struct env_guard_t {
    std::string name;
    std::string old;
    bool had;
    env_guard_t(const char *n, const char *value) : name(n) {
        const char *v = getenv(n);
        had = v != nullptr;
        if (had) old = v;
        if (value) setenv(n, value, 1);
        else unsetenv(n);
    }
    ~env_guard_t() {
        if (had) setenv(name.c_str(), old.c_str(), 1);
        else unsetenv(name.c_str());
    }
};

std::string folder(u64 (*get)(char *, u64)) {
    char buffer[4096];
    u64 n = get(buffer, sizeof(buffer));
    EXPECT_EQ(n, strlen(buffer));
    return std::string(buffer, n);
}

} // namespace

TEST(OsWait, SemaphoreRefusesToPassItsMaximum) {
    os_semaphore_t *s = os_semaphore_create(0, 3);
    ASSERT_NE(s, nullptr);
    EXPECT_TRUE(os_semaphore_release(s, 2));
    EXPECT_FALSE(os_semaphore_release(s, 2)); // 4 > 3: refused as a whole
    EXPECT_TRUE(os_semaphore_release(s, 1));
    for (int i = 0; i < 3; i++) os_semaphore_wait(s); // three counts, no blocking
    os_semaphore_close(s);
    EXPECT_EQ(os_semaphore_create(4, 3), nullptr);
    os_semaphore_t *none = os_semaphore_create(0, 0);
    EXPECT_FALSE(os_semaphore_release(none, 1));
    os_semaphore_close(none);
}

TEST(OsPlaces, UserDataFolderFollowsXdg) {
    struct {
        const char *data, *home, *expected;
    } cases[] = {
        {"/custom/data/", "/home/x", "/custom/data/tidewrack"},
        {"relative/is/ignored", "/home/someone", "/home/someone/.local/share/tidewrack"},
        {nullptr, "/home/other", "/home/other/.local/share/tidewrack"},
    };
    for (const auto &c : cases) {
        env_guard_t data("XDG_DATA_HOME", c.data), home("HOME", c.home);
        EXPECT_EQ(folder(os_user_data_folder), c.expected);
    }
    char small[8];
    env_guard_t data("XDG_DATA_HOME", "/custom/data");
    EXPECT_EQ(os_user_data_folder(small, sizeof(small)), 0u);
}

TEST(OsPlaces, TheUserDataFolderParentIsMadeWithItsParents) {
    std::string base = ::testing::TempDir() + "tidewrack_xdg_" + std::to_string(getpid());
    env_guard_t data("XDG_DATA_HOME", (base + "/fresh/share").c_str());
    EXPECT_TRUE(os_user_data_parent_create());
    EXPECT_EQ(os_path_kind((base + "/fresh/share").c_str()), 2u);
    EXPECT_EQ(os_path_kind((base + "/fresh/share/tidewrack").c_str()), 0u); // the save makes that one
    std::filesystem::remove_all(base);
}

TEST(OsPlaces, DesktopFromUserDirsOrFallbacks) {
    temp_folder_t home;
    env_guard_t h("HOME", home.path.c_str());
    env_guard_t config("XDG_CONFIG_HOME", nullptr);
    // Nothing there: the home folder itself.
    EXPECT_EQ(folder(os_desktop_folder), home.path);
    // ~/Desktop when it exists.
    fs::create_directory(home / "Desktop");
    EXPECT_EQ(folder(os_desktop_folder), home / "Desktop");
    // The user's configured folder wins, with $HOME expanded.
    fs::create_directories(home / ".config");
    fs::create_directory(home / "Bureau");
    write_whole(home / ".config/user-dirs.dirs",
                "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Documents\"\nXDG_DESKTOP_DIR=\"$HOME/Bureau\"\n");
    EXPECT_EQ(folder(os_desktop_folder), home / "Bureau");
    // A configured folder that does not exist falls back.
    write_whole(home / ".config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Gone\"\n");
    EXPECT_EQ(folder(os_desktop_folder), home / "Desktop");
    // XDG_CONFIG_HOME moves the file; absolute values are taken as they are.
    temp_folder_t config_home;
    env_guard_t c("XDG_CONFIG_HOME", config_home.path.c_str());
    write_whole(config_home / "user-dirs.dirs", "XDG_DESKTOP_DIR=\"" + (home / "Bureau") + "\"\n");
    EXPECT_EQ(folder(os_desktop_folder), home / "Bureau");
}

TEST(OsProcess, SpawnPassesTheLinkAsOneArgument) {
    temp_folder_t dir;
    // A link with blanks, quotes and shell characters must arrive whole.
    std::string link = "http://example.com/a b?c='d'&e=$HOME;`f`";
    std::string out = dir / "out";
    std::string script = dir / "record.sh";
    write_whole(script, "#!/bin/sh\nprintf '%s|%s' \"$#\" \"$1\" > '" + out + ".tmp'\nmv '" + out + ".tmp' '" +
                            out + "'\n");
    fs::permissions(script, fs::perms::owner_all);
    const char *argv[] = {script.c_str(), link.c_str(), nullptr};
    ASSERT_TRUE(os_process_start(argv));
    while (!fs::exists(out)) std::this_thread::yield();
    EXPECT_EQ(read_whole(out), "1|" + link);
    std::string missing = dir / "no-such-program";
    const char *none[] = {missing.c_str(), "x", nullptr}, *empty[] = {"", "x", nullptr};
    EXPECT_FALSE(os_process_start(none));
    EXPECT_FALSE(os_process_start(empty));
}
