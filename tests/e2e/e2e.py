#!/usr/bin/env python3
"""End-to-end sessions: the real program in a private X server, driven as a
person would, checked by screenshots and by the reader it saved.

  tests/e2e/e2e.py PROGRAM TOOL SESSION

CTest runs each session as a test of its own (tests/e2e/CMakeLists.txt).
The sessions that need the drawn views say "skipped" (exit 77) while the
window content isn't drawn.
"""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from harness import SKIP, check, main, run, views_drawn  # noqa: E402


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


def needs_views(session):
    def run_session(s):
        folder = s.folder("probe")
        p = s.start(folder)
        image = p.wait_drawn("a first frame", lambda i: i.count((0, 0, 0), 0) < i.width * i.height, timeout=20)
        p.close()
        if not views_drawn(image):
            print("skipped: the window content is not drawn in this build")
            return SKIP
        return session(s)
    return run_session


SESSIONS = {
    "window": window,
}

if __name__ == "__main__":
    sys.exit(main(SESSIONS))
