#!/usr/bin/env python3
"""End-to-end sessions: the real program in a private X server, driven as a
person would, checked by screenshots and by the reader it saved.

  tests/e2e/e2e.py PROGRAM TOOL SESSION

CTest runs each session as a test of its own (tests/e2e/CMakeLists.txt).
"""
import os
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from harness import (BACKGROUND, SELECTED_ENTRY, SELECTED_FEED, check, main, run, views_drawn,  # noqa: E402
                     wait_for)

BUTTON = (128, 128, 128)        # a button's fill, grey .5
SCROLL_TRACK = (33, 33, 36)     # a scroll bar's track, (0.13, 0.13, 0.14)


def snapshots(folder):
    return sorted(n for n in os.listdir(folder) if n.startswith("feed_data_") and n.endswith(".bin"))


def newest_snapshot(folder):
    """The newest snapshot as (name, inode, modification time). A save writes a
    new file and renames it over the name, so even a save in the same second as
    the one before (same name) gives a new inode."""
    name = snapshots(folder)[-1]
    status = os.stat(os.path.join(folder, name))
    return name, status.st_ino, status.st_mtime_ns


def window(s):
    """First start on an empty folder: the window with its class and icon; a
    close saves an empty reader. Feeds imported from OPML by the tool are
    there at the next start, and a start and close keep them exactly."""
    folder = s.folder("reader")
    p = s.start(folder)
    props = run(["xprop", "-id", p.window, "WM_CLASS", "_NET_WM_ICON"], env=s.display.env).stdout
    check('"tidewrack", "tidewrack"' in props, "window class: " + props[:200])
    check("Icon (64 x 64)" in props, "the window has no 64-pixel icon")
    check(p.close() == 0, "exit status")
    check(len(snapshots(folder)) == 1, "one snapshot after the first close")
    empty = s.tool.dump(folder)
    check(empty["feeds"] == [] and empty["counters"]["generation"] == 0, "an empty reader")

    result = s.tool("import", "-path", folder, twenty_feeds(s))
    check(result.returncode == 1 and "Returned (5)" in result.stderr, "the dead address fails: " + result.stderr)
    before = s.tool.dump(folder)
    check(len(before["feeds"]) == 18, "18 of 20 feeds: %d" % len(before["feeds"]))
    imported = newest_snapshot(folder)

    p = s.start(folder)
    check(p.close() == 0, "exit status of the second start")
    after = s.tool.dump(folder)
    check(after == before, "the reader changed over a start and close")
    closed = newest_snapshot(folder)
    check(closed[0] >= imported[0] and closed != imported, "no new snapshot at the close: %r" % (closed,))


def _fetch(url):
    with urllib.request.urlopen(url) as response:
        return response.read()


def twenty_feeds(s):
    """The demo server's OPML list of 20 feeds (one dead, one not a feed), as a file."""
    opml = os.path.join(s.temp, "twenty.opml")
    with open(opml, "wb") as f:
        f.write(_fetch(s.demo.url("/twenty.opml")))
    return opml


def start_drawn(s, folder, args=(), cwd=None):
    """The program started, its first frame drawn: ready for input."""
    p = s.start(folder, args, cwd)
    p.wait_drawn("the window content", views_drawn)
    return p


def recorder(s):
    """An executable for a link configuration that writes its arguments, one a line."""
    script = os.path.join(s.temp, "record-links")
    argv = os.path.join(s.temp, "argv.txt")
    with open(script, "w") as f:
        # one write a start, so that starts running at once don't interleave
        f.write('#!/bin/sh\nr=""\nfor a in "$@"; do r="$r$a\n"; done\nprintf "%%s" "$r" >> %s\n' % argv)
    os.chmod(script, 0o755)
    return script, argv


def recorded(argv, count):
    def probe():
        if not os.path.exists(argv):
            return None
        lines = open(argv).read().splitlines()
        return lines if len(lines) >= count else None
    return wait_for("%d recorded link(s)" % count, probe)


def add_by_typing(p, url):
    """Types an address into the add feed panel's first field and presses Enter."""
    image = p.wait_drawn("the add feed panel", lambda i: len(i.text_boxes()) == 3)
    box = image.text_boxes()[0]
    p.click(box[0] + 100, (box[1] + box[3]) // 2)
    p.key("End", "shift+Home")  # the field keeps its last text: select it, typing replaces it
    p.type(url)
    p.key("Return", "Escape")  # Escape leaves the field, so that the list's keys act again


def blocks(p, count):
    return p.wait_drawn("%d feed blocks" % count, lambda i: len(i.feed_blocks()) == count)


def configure_links(p, name, executable, queue=False):
    """The first link configuration, through the links panel (F3)."""
    p.key("F3")
    image = p.wait_drawn("the links panel", lambda i: len(i.text_boxes()) >= 2 and i.text_boxes()[0][1] > 300)
    name_box, executable_box = image.text_boxes()[:2]
    for box, text in ((name_box, name), (executable_box, executable)):
        p.click(box[0] + 50, (box[1] + box[3]) // 2)
        p.type(text)
        p.key("Escape")
    if queue:  # the check box stands under the label column, below the executable row
        p.click(name_box[0] - 80, executable_box[3] + 14)


def key_of(entry):
    """What names an entry across saves: the RSS guid or the Atom id."""
    return entry.get("guid") or entry.get("atom_id")


def feed_entries(dump, feed):
    return [e for e in dump["entries"] if e["feed_id"] == feed["id"]]


def first_start(s):
    """(a) First start on an empty folder: two feeds added by typing, Update
    all, an entry read and its link opened through a configured executable;
    the next start shows the same reader."""
    folder = s.folder("reader")
    script, argv = recorder(s)
    p = start_drawn(s, folder)
    add_by_typing(p, s.demo.url("/harbour-notes.xml"))
    blocks(p, 1)
    add_by_typing(p, s.demo.url("/the-drift.atom"))
    blocks(p, 2)
    p.key("F5")
    configure_links(p, "Recorder", script)
    p.key("Down")
    image = p.wait_drawn("the first entry selected", lambda i: i.find(SELECTED_ENTRY) is not None)
    row = image.find(SELECTED_ENTRY)
    check(row[2] <= 460 and row[1] > image.feed_blocks()[0][0], "the selected row stands in the first block")
    p.key("Return")
    links = recorded(argv, 1)
    check(p.close() == 0, "exit status")

    saved = s.tool.dump(folder)
    check([f["title"] for f in saved["feeds"]] == ["Harbour Notes", "The Drift"], "feeds in the order added")
    check(saved["counters"]["generation"] == 1, "one generation for the run")
    configuration = saved["link_configurations"][0]
    check(configuration["name"] == "Recorder" and configuration["executable"] == script, "the link configuration")
    first = feed_entries(saved, saved["feeds"][0])[0]
    check(links == [first["link"]], "the opened link: %r, not %r" % (links, first["link"]))

    p = start_drawn(s, folder)
    blocks(p, 2)
    check(p.close() == 0, "exit status of the second start")
    check(s.tool.dump(folder) == saved, "the reader changed over the second start")


def import_list(s):
    """(b) An OPML file of 20 feeds from the loopback server, one dead and one
    not a feed: the log panel opens with the failure, the other feeds are there."""
    folder = s.folder("reader")
    opml = twenty_feeds(s)
    p = start_drawn(s, folder, ["-log"], cwd=s.temp)
    image = p.wait_drawn("the add feed panel", lambda i: len(i.text_boxes()) == 3)
    box = image.text_boxes()[1]
    p.click(box[0] + 100, (box[1] + box[3]) // 2)
    p.type(opml)
    p.key("Return")
    p.wait_drawn("the log panel", lambda i: len(i.text_boxes()) == 0 and i.find(SELECTED_FEED) is None)

    def saved_feeds():
        p.key("F8")
        try:
            return len(s.tool.dump(folder)["feeds"]) == 18
        except Exception:
            return False
    wait_for("18 feeds saved", saved_feeds, step=0.5)
    check(p.close() == 0, "exit status")
    saved = s.tool.dump(folder)
    addresses = {f["url"] for f in saved["feeds"]}
    check(len(addresses) == 18 and all("/gen/demo-" in a for a in addresses), "the 18 feeds, and no other")
    log = open(os.path.join(s.temp, "log.txt"), encoding="utf-8", errors="replace").read()
    check("http_get_file error: " + _fetch(s.demo.url("/dead")).decode() in log, "the dead address in the log")


def near(pixel, colour, tolerance=3):
    return all(abs(pixel[k] - colour[k]) <= tolerance for k in range(3))


def settled(p, name):
    """The window once two screenshots in a row agree: every frame the last input asked for is drawn."""
    path = os.path.join(tempfile.gettempdir(), "tidewrack_e2e_%d_%s" % (os.getpid(), name))
    last = [p.screenshot(path)]

    def same():
        image = p.screenshot(path)
        if image.pixels == last[0].pixels:
            return image
        last[0] = image
    return wait_for("the window to settle", same, step=0.3)


def grey_runs(image, x, top):
    """Vertical runs of a button's grey fill in column x, below `top`."""
    return [r for r in image.runs(x, (BUTTON,), top=top) if r[1] - r[0] >= 10]


def queue(s):
    """(c) Four links queued, one removed with its "X": the next frame shows the
    count without the pointer moving. A press and release on the links panel's
    scroll bar leaves the mouse working. The window closed: the queue is opened
    at close and saved empty."""
    folder = s.folder("reader")
    check(s.tool("update", "-path", folder, s.demo.url("/harbour-notes.xml")).returncode == 0, "prepared reader")
    script, argv = recorder(s)
    p = start_drawn(s, folder)
    configure_links(p, "Later", script, queue=True)
    for _ in range(4):
        p.key("Down", "Return")
    p.key("F3")
    image = p.wait_drawn("the links panel", lambda i: len(i.text_boxes()) >= 2 and i.text_boxes()[0][1] > 300)
    executable = image.text_boxes()[1]
    # "Get OS default" stands right of the field, at the layout's right edge.
    y, right = (executable[1] + executable[3]) // 2, executable[2]
    for background in (False, True, False):  # the field's border, the gap, the button
        while near(image.pixel(right, y), BACKGROUND) == background:
            right += 1
    # Under that edge: "Get OS default", then the "X" of each queued link.
    buttons = grey_runs(image, right - 4, executable[1])
    check(len(buttons) >= 5, "the X buttons of four rows: %r" % buttons)
    first_x = buttons[1]
    p.click(right - 4, (first_x[0] + first_x[1]) // 2)
    p.wait_drawn("one row less after X", lambda i: len(grey_runs(i, right - 4, executable[1])) == len(buttons) - 1)
    still = settled(p, "after_x.png")
    s.display.xdotool("mousemove_relative", "1", "0")
    moved = settled(p, "after_move.png")
    check(still.pixels == moved.pixels, "the frame after X showed the old count until the pointer moved")

    bar_x = image.width - 10
    check(any(near(image.pixel(bar_x, 100), c) for c in (BUTTON, SCROLL_TRACK)), "no scroll bar at the right edge")
    p.click(bar_x, 100)
    row = image.feed_blocks()[0][0] + 24 + 10  # the first entry's row
    p.click(100, row)
    selected = p.wait_drawn("the clicked row selected", lambda i: i.find(SELECTED_ENTRY) is not None and
                            i.find(SELECTED_ENTRY)[1] <= row < i.find(SELECTED_ENTRY)[3])
    check(selected.find(SELECTED_ENTRY)[1] < image.feed_blocks()[0][0] + 40, "the first row selected")

    p.key("F8")
    queued = wait_for("the queue saved", lambda: s.tool.dump(folder)["link_configurations"][0]["queued_links"])
    check(len(queued.split()) == 3 and not os.path.exists(argv), "three links queued, none opened: " + queued)
    check(p.close() == 0, "exit status")
    links = recorded(argv, 3)
    saved = s.tool.dump(folder)
    configuration = saved["link_configurations"][0]
    check(links == queued.split(), "the queue handed over at close, in order")
    check(configuration["queued_links"] == "" and configuration["queue_links"], "saved with an empty queue")
    check(links == [e["link"] for e in saved["entries"][1:4]], "the second to fourth entries' links")


def choose_filter(p, item):
    """The left menu's dropdown: "Feeds", "Deleted" or "Both"; its list opens
    under it, one row a line of font 1."""
    index = ["Feeds", "Deleted", "Both"].index(item)
    p.click(410, 13)
    p.click(410, 37 + 18 * index)


def delete(s):
    """(d) An entry deleted twice (marked, then erased), a feed removed with
    Shift+Delete and brought back with Shift+Backspace, F8, a restart: the
    state persisted exactly; an entry left marked is purged by the close."""
    folder = s.folder("reader")
    for name in ("/harbour-notes.xml", "/the-drift.atom"):  # one run each: two generations, a known order
        check(s.tool("update", "-path", folder, s.demo.url(name)).returncode == 0, "prepared reader")
    before = s.tool.dump(folder)
    harbour, drift = before["feeds"]
    erased = feed_entries(before, harbour)[0]
    p = start_drawn(s, folder)
    blocks(p, 1)                   # only the newest generation: The Drift
    p.key("a")                     # All
    blocks(p, 2)
    choose_filter(p, "Both")       # deleted records stay in the list
    p.key("Down", "Delete", "Up", "Delete")   # the first entry marked, then erased
    p.key("shift+Prior")           # from the entry to its feed's row
    image = p.wait_drawn("the first feed selected", lambda i: i.feed_blocks() and i.feed_blocks()[0][2])
    check(image.find(SELECTED_ENTRY) is None, "no entry selected with the feed row")
    p.key("shift+Delete")          # the feed and its entries marked
    p.key("shift+Prior", "shift+Prior")       # the other feed's row, then back to the marked one
    p.key("shift+BackSpace")       # restored with all its entries
    p.key("F8")

    def saved_after_f8():
        d = s.tool.dump(folder)
        return d if len(d["entries"]) == len(before["entries"]) - 1 else None
    saved = wait_for("the F8 snapshot", saved_after_f8)
    check(not any(f["deleted"] for f in saved["feeds"]) and not any(e["deleted"] for e in saved["entries"]),
          "everything restored")
    check(key_of(erased) not in [key_of(e) for e in saved["entries"]], "the erased entry is gone")
    saved_drift = next(f for f in saved["feeds"] if f["url"] == drift["url"])
    check(sorted(key_of(e) for e in feed_entries(saved, saved_drift)) ==
          sorted(key_of(e) for e in feed_entries(before, drift)), "the other feed untouched")
    check(p.close() == 0, "exit status")
    check(s.tool.dump(folder) == saved, "the save at close differs from F8's")
    p = start_drawn(s, folder)
    blocks(p, 1)
    check(s.tool.dump(folder) == saved, "the reader changed over a restart")
    # An entry only marked when the window closes is purged by the close.
    p.key("Down", "Delete", "F8")
    marked = wait_for("the mark saved", lambda: [e for e in s.tool.dump(folder)["entries"] if e["deleted"]])
    check(len(marked) == 1, "one entry marked")
    check(p.close() == 0, "exit status of the restart")
    last = s.tool.dump(folder)
    check(len(last["entries"]) == len(saved["entries"]) - 1 and not any(e["deleted"] for e in last["entries"]),
          "the marked entry purged at close")
    check(key_of(marked[0]) not in [key_of(e) for e in last["entries"]], "the marked entry is gone")


def becomes_idle(pid, seconds=20):
    """Whether a process reaches a second in which it uses no processor time."""
    def ticks():  # user and system clock ticks so far
        fields = open("/proc/%d/stat" % pid).read().rsplit(")", 1)[1].split()
        return int(fields[11]) + int(fields[12])
    before = ticks()
    for _ in range(seconds):
        time.sleep(1)
        now = ticks()
        if now == before:
            return True
        before = now
    return False


def signals(s):
    """The window opened, the program idles without using the processor; SIGTERM
    or SIGINT ends it with status 0 and a saved snapshot, its log and a profile
    the report tool reads: the main thread's frames and six workers'."""
    for number in (signal.SIGTERM, signal.SIGINT):
        folder, cwd = s.folder("reader%d" % number), s.folder("cwd%d" % number)
        os.makedirs(cwd)
        p = s.start(folder, ["-gfx_log", "-log", "-profile"], cwd)
        # The OpenGL report is written once the window and its context exist.
        gl_log = os.path.join(cwd, "win32_opengl.log")
        wait_for("the OpenGL report", lambda: os.path.exists(gl_log) and "GL_VERSION" in open(gl_log).read(), 60)
        check(becomes_idle(p.process.pid), "still using the processor")
        p.process.send_signal(number)
        p.process.wait(timeout=60)
        check(p.close() == 0, "exit status after signal %d" % number)
        check(p.stderr == "", "stderr: " + p.stderr)
        check(len(snapshots(folder)) == 1, "one snapshot")
        check("Frame start: " in open(os.path.join(cwd, "log.txt")).read(), "frames in the log")
        report = run([os.environ["TIDEWRACK_PROFILE_TOOL"], os.path.join(cwd, "profile.bin")])
        check(report.returncode == 0, "the report tool: " + report.stderr)
        main_at = report.stdout.find("] - main\n")
        check(main_at >= 0 and "\nframe " in report.stdout[main_at:], "the main thread's frames")
        check(report.stdout.count("] - worker_thread\n") == 6, "six workers' timelines")


def exited(command, env, cwd=None):
    result = subprocess.run(command, env=env, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            timeout=60)
    return result.returncode, result.stderr


def no_window(s):
    """Without a display, or without OpenGL 3.3, the program saves and says why, in one line."""
    bare = {k: v for k, v in s.display.env.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
    old_gl = dict(s.display.env, MESA_GL_VERSION_OVERRIDE="3.1")
    for what, env, reason in (("no display", bare, "no display"), ("old OpenGL", old_gl, "OpenGL 3.3")):
        folder = s.folder(what)
        status, err = exited([s.program_binary, "-path", folder], env)
        check(status == 0, what + ": exit status %d" % status)
        check(len(snapshots(folder)) == 1, what + ": one snapshot")
        check(err.startswith("tidewrack: no window: ") and reason in err and err.count("\n") == 1, what + ": " + err)


def damaged(s):
    """A damaged newest snapshot stops the start before any file is touched,
    and names the file."""
    for what, data in (("not a reader file", b"this is not a snapshot"), ("empty", b""),
                       ("right magic, cut short", b"feed\x01\x00\x00\x00" + bytes(20))):
        folder, cwd = s.folder(what), s.folder(what + " cwd")
        os.makedirs(folder)
        os.makedirs(cwd)
        newest = os.path.join(folder, "feed_data_20250101_000000.bin")
        for name, content in (("feed_data_20240101_000000.bin", b"an older one"), (newest, data),
                              ("notes.txt", b"someone else's")):
            with open(os.path.join(folder, name), "wb") as f:
                f.write(content)

        def listing():
            return {n: (open(os.path.join(folder, n), "rb").read(), os.stat(os.path.join(folder, n)).st_mtime_ns)
                    for n in os.listdir(folder)}
        before = listing()
        status, err = exited([s.program_binary, "-path", folder, "-log", "-profile"], s.display.env, cwd)
        check(status != 0, what + ": exit status 0")
        check(listing() == before, what + ": the folder changed")
        check(newest in err and "Move that file out of the folder" in err, what + ": " + err)
        check(not {"log.txt", "profile.bin"} & set(os.listdir(cwd)), what + ": a log or profile written")

def scripts(s):
    """A reader holding 20000 distinct Han characters and titles in many
    scripts: it starts, draws the entries and an article, saves, and starts
    again (TIDEWRACK_E2E_SHOTS names a folder for the screenshots)."""
    folder = s.folder("reader")
    for path in ("/han.xml?count=20000", "/world-news.xml"):
        check(s.tool("update", "-path", folder, s.demo.url(path)).returncode == 0, "prepared reader: " + path)
    shots = os.environ.get("TIDEWRACK_E2E_SHOTS")
    for start in (1, 2):
        p = start_drawn(s, folder)
        p.key("Down")
        p.wait_drawn("an entry selected", lambda i: i.find(SELECTED_ENTRY) is not None)
        if shots:
            p.screenshot(os.path.join(shots, "scripts_%d.png" % start))
        p.key("F8")
        check(p.close() == 0, "exit status of start %d" % start)
    saved = s.tool.dump(s.folder("reader"))
    check(len(saved["entries"]) == 108, "the entries of both feeds: %d" % len(saved["entries"]))


SESSIONS = {
    "scripts": scripts,
    "window": window,
    "first_start": first_start,
    "import": import_list,
    "queue": queue,
    "delete": delete,
    "signals": signals,
    "no_window": no_window,
    "damaged": damaged,
}

if __name__ == "__main__":
    sys.exit(main(SESSIONS))
