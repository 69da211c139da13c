#!/usr/bin/env python3
"""End-to-end sessions: the real program in a private X server, driven as a
person would, checked by screenshots and by the reader it saved.

  tests/e2e/e2e.py PROGRAM TOOL SESSION

CTest runs each session as a test of its own (tests/e2e/CMakeLists.txt).
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from harness import (SELECTED_ENTRY, SELECTED_FEED, check, main, run, views_drawn,  # noqa: E402
                     wait_for)


def snapshots(folder):
    return sorted(n for n in os.listdir(folder) if n.startswith("feed_data_") and n.endswith(".bin"))


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

    opml = os.path.join(s.temp, "twenty.opml")
    with open(opml, "wb") as f:
        f.write(_fetch(s.demo.url("/twenty.opml")))
    result = s.tool("import", "-path", folder, opml)
    check(result.returncode == 1 and "Returned (5)" in result.stderr, "the dead address fails: " + result.stderr)
    before = s.tool.dump(folder)
    check(len(before["feeds"]) == 18, "18 of 20 feeds: %d" % len(before["feeds"]))

    p = s.start(folder)
    check(p.close() == 0, "exit status of the second start")
    after = s.tool.dump(folder)
    check(after == before, "the reader changed over a start and close")
    check(len(snapshots(folder)) >= 2, "a snapshot per save, but two in one second share a name")


def _fetch(url):
    import urllib.request
    with urllib.request.urlopen(url) as response:
        return response.read()


def start_drawn(s, folder, args=(), cwd=None):
    """Starts the program and waits for its first drawn frame, before any input."""
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
    if url.lower().count("h") % 2:
        p.key("h")  # H toggles "Show empty" even when typed into a field: toggle it back


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
    opml = os.path.join(s.temp, "subscriptions.opml")
    with open(opml, "wb") as f:
        f.write(_fetch(s.demo.url("/twenty.opml")))
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


def queue(s):
    """(c) Three links queued, the window closed: the queue is opened at
    close and saved empty."""
    folder = s.folder("reader")
    check(s.tool("update", "-path", folder, s.demo.url("/harbour-notes.xml")).returncode == 0, "prepared reader")
    script, argv = recorder(s)
    p = start_drawn(s, folder)
    configure_links(p, "Later", script, queue=True)
    for _ in range(3):
        p.key("Down", "Return")
    p.key("F8")
    queued = wait_for("the queue saved", lambda: s.tool.dump(folder)["link_configurations"][0]["queued_links"])
    check(len(queued.split()) == 3 and not os.path.exists(argv), "three links queued, none opened: " + queued)
    check(p.close() == 0, "exit status")
    links = recorded(argv, 3)
    saved = s.tool.dump(folder)
    configuration = saved["link_configurations"][0]
    check(links == queued.split(), "the queue handed over at close, in order")
    check(configuration["queued_links"] == "" and configuration["queue_links"], "saved with an empty queue")
    check(links == [e["link"] for e in saved["entries"][:3]], "the first three entries' links")


def choose_filter(p, item):
    """The left menu's dropdown: "Feeds", "Deleted" or "Both"; its list opens
    under it, one row a line of font 1."""
    index = ["Feeds", "Deleted", "Both"].index(item)
    p.click(410, 13)
    p.click(410, 37 + 18 * index)


def delete(s):
    """(d) An entry deleted twice (marked, then erased), a feed removed with
    Shift+Delete and brought back with Shift+Backspace, F8, a restart: the
    state persisted exactly."""
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
    check(p.close() == 0, "exit status of the restart")
    check(s.tool.dump(folder) == saved, "the reader changed over a restart")


SESSIONS = {
    "window": window,
    "first_start": first_start,
    "import": import_list,
    "queue": queue,
    "delete": delete,
}

if __name__ == "__main__":
    sys.exit(main(SESSIONS))
