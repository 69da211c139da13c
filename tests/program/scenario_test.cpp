// A person at the real window, driven by xdotool under the private X server:
// start on an empty folder, type a feed's address, update all (F5), walk to
// an entry (Down), delete it (Delete), save (F8) and close the window. The
// snapshots, read back with tidewrack-tool dump, hold what was done.
//
// The program reads a key that went down and up within one pump of messages
// as up only, and a loaded machine may take a while for a frame; so keys and
// the button are held until what they do can be seen (the caret, a request,
// a snapshot that says so), and a press that left no trace is pressed again.

#include "net/json_test_util.h"
#include "net/test_server.h"
#include "program_run.h"

namespace {

void xdotool(const std::string &arguments) { command_output("xdotool " + arguments + " 2>/dev/null"); }

template <typename test_t> bool eventually(test_t test, int seconds) {
    for (int i = 0; i < seconds * 20; i++) {
        if (test()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

// A key held for a moment, for what can't be seen before a save.
void hold(const std::string &key) {
    xdotool("keydown " + key);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    xdotool("keyup " + key);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// A key, or the button when `key` is empty, held until `done` says it acted,
// pressed again up to five times.
template <typename test_t> bool hold_until(const std::string &key, test_t done, int seconds = 10) {
    for (int attempt = 0; attempt < 5; attempt++) {
        xdotool(key.empty() ? "mousedown 1" : "keydown " + key);
        bool acted = eventually(done, seconds);
        xdotool(key.empty() ? "mouseup 1" : "keyup " + key);
        if (acted) return true;
    }
    return false;
}

std::string rss(int items) {
    std::string out = "<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>Loopback</title>";
    for (int i = 0; i < items; i++)
        out += "<item><title>Item " + std::to_string(i) + "</title><guid>item-" + std::to_string(i) +
               "</guid><link>http://127.0.0.1:1/" + std::to_string(i) + "</link></item>";
    return out + "</channel></rss>";
}

struct program_t : run_t {
    json_value_t dump() {
        bool ok = false;
        json_value_t value = json_parse(command_output(std::string(TIDEWRACK_TOOL) + " dump -path " + data.string()), &ok);
        return ok ? value : json_value_t{};
    }
    // Saves with F8 until the newest snapshot passes the test.
    template <typename test_t> bool save_until(test_t test, int seconds = 60) {
        for (int i = 0; i < seconds * 2; i++) {
            hold("F8");
            if (test(dump())) return true;
        }
        return false;
    }
};

TEST(Scenario, AddUpdateDeleteSaveAndClose) {
    std::atomic<int> requests{0};
    test_server_t server([&](const std::string &) {
        test_response_t response;
        response.body = rss(requests++ == 0 ? 3 : 4); // the update brings a fourth item
        return response;
    });
    program_t program;
    program.start({});
    // The address field of the add feed panel, which the program opens on:
    // once the window shows it drawn (white), the program takes input.
    std::string window;
    ASSERT_TRUE(eventually(
        [&] {
            window = command_output("xdotool search --onlyvisible --name '^Tidewrack' 2>/dev/null");
            window = window.substr(0, window.find('\n'));
            if (window.empty()) return false;
            std::string pixel = command_output("import -window " + window + " -crop 1x1+700+87 txt:- 2>/dev/null");
            return pixel.find("white") != std::string::npos;
        },
        60))
        << "the window didn't come up";

    // The button stays down until the field shows its caret at its left.
    xdotool("mousemove --window " + window + " 700 87");
    auto caret = [&] {
        std::string pixels = command_output("import -window " + window + " -crop 4x1+466+87 txt:- 2>/dev/null");
        return pixels.find("black") != std::string::npos;
    };
    ASSERT_TRUE(hold_until("", caret)) << "the address field didn't take the click";
    std::string url = server.url("/feed.xml");
    xdotool("type --delay 20 '" + url + "'");
    ASSERT_TRUE(hold_until("Return", [&] { return requests >= 1; }, 30)) << "no request: the address didn't arrive";
    ASSERT_TRUE(program.save_until([&](const json_value_t &d) { return d["feeds"].size() == 1; }));

    ASSERT_TRUE(hold_until("F5", [&] { return requests >= 2; }));
    ASSERT_TRUE(program.save_until([&](const json_value_t &d) { return d["entries"].size() == 4; }));

    std::string deleted_guid;
    auto marked = [&](const json_value_t &d) {
        int count = 0;
        for (const json_value_t &e : d["entries"].items)
            if (e["deleted"].b) count++, deleted_guid = e["guid"].s;
        return count;
    };
    bool deleted = false;
    for (int attempt = 0; attempt < 5 && !deleted; attempt++) {
        hold("Down");
        hold("Delete");
        deleted = program.save_until([&](const json_value_t &d) { return marked(d) > 0; }, 5);
    }
    ASSERT_TRUE(deleted);
    ASSERT_EQ(marked(program.dump()), 1);

    // Closing the window purges what is marked and saves.
    xdotool("keydown alt");
    bool closed = hold_until("F4", [&] { return program.wait_exit(1); });
    xdotool("keyup alt");
    ASSERT_TRUE(closed || program.wait_exit(60));
    ASSERT_TRUE(WIFEXITED(program.status));
    EXPECT_EQ(WEXITSTATUS(program.status), 0);
    json_value_t last = program.dump();
    ASSERT_EQ(last["feeds"].size(), 1u);
    EXPECT_EQ(last["feeds"][0]["url"].s, url);
    EXPECT_EQ(last["feeds"][0]["title"].s, "Loopback");
    ASSERT_EQ(last["entries"].size(), 3u);
    for (const json_value_t &e : last["entries"].items) {
        EXPECT_FALSE(e["deleted"].b);
        EXPECT_NE(e["guid"].s, deleted_guid);
    }
    EXPECT_EQ(last["counters"]["generation"].n, 1);
}

} // namespace
