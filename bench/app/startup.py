#!/usr/bin/env python3
"""Start-up time: from starting the program to the end of its first drawn
frame (the first buffer swap), with an empty reader and with a full one
(100 feeds, 10000 entries), over several runs in a private Xvfb with Mesa's
software OpenGL; then one run of each with -profile, whose report says where
the time goes.

  bench/app/startup.py BUILD_DIR [RUNS]      (default: 10 runs)

BUILD_DIR is a build folder (a Release one for figures: build/release).
The full reader is fetched once from tools/demo/serve.py's made-up feeds.
"""
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.normpath(os.path.join(HERE, "..", ".."))
sys.path.insert(0, os.path.join(ROOT, "tests", "e2e"))
from harness import Demo, Display, Failure, wait_for  # noqa: E402


def build_shim(folder):
    shim = os.path.join(folder, "first_frame.so")
    subprocess.run(["cc", "-O2", "-shared", "-fPIC", "-o", shim, os.path.join(HERE, "first_frame.c"), "-ldl"],
                   check=True)
    return shim


def one_run(display, program, folder, shim, marker, args=(), cwd=None):
    if os.path.exists(marker):
        os.remove(marker)
    env = dict(display.env, LD_PRELOAD=shim, TIDEWRACK_FIRST_FRAME=marker)
    start = time.monotonic_ns()
    p = subprocess.Popen([program, "-path", folder] + list(args), env=env, cwd=cwd,
                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    wait_for("the first frame", lambda: os.path.exists(marker) or p.poll() is not None, timeout=60, step=0.002)
    if p.poll() is not None:
        raise Failure("the program ended: " + p.stderr.read().decode(errors="replace"))
    frame = int(open(marker).read())
    p.send_signal(signal.SIGTERM)
    p.wait()
    return (frame - start) / 1e6


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    build = os.path.abspath(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 10
    program = os.path.join(build, "app", "tidewrack")
    tool = os.path.join(build, "tools", "tool", "tidewrack-tool")
    profile = os.path.join(build, "tools", "profile", "tidewrack-profile")
    temp = tempfile.mkdtemp(prefix="tidewrack_startup_")
    display = Display()
    demo = Demo()
    try:
        shim = build_shim(temp)
        empty, full = os.path.join(temp, "empty"), os.path.join(temp, "full")
        urls = [demo.url("/gen/f%03d.xml?items=100" % i) for i in range(100)]
        subprocess.run([tool, "update", "-path", full] + urls, check=True, env=display.env)
        marker = os.path.join(temp, "first_frame")
        print("start to first drawn frame, %d runs, Xvfb and Mesa (LIBGL_ALWAYS_SOFTWARE=1)" % runs)
        for name, folder in (("empty reader", empty), ("100 feeds, 10000 entries", full)):
            times = [one_run(display, program, folder, shim, marker) for _ in range(runs)]
            print("  %-26s median %6.1f ms   min %6.1f   max %6.1f" %
                  (name, statistics.median(times), min(times), max(times)))
        for name, folder in (("empty reader", empty), ("100 feeds, 10000 entries", full)):
            cwd = os.path.join(temp, "profile_" + os.path.basename(folder))
            os.makedirs(cwd)
            one_run(display, program, folder, shim, marker, ["-profile"], cwd)
            report = subprocess.run([profile, os.path.join(cwd, "profile.bin")], stdout=subprocess.PIPE,
                                    text=True).stdout
            tree = report.split("# Tree", 1)[1].split("-----", 1)[0] if "# Tree" in report else report
            print("\nwhere the time goes, %s (main thread, -profile; the first frame is the first 'frame'):" % name)
            lines = [l for l in tree.strip().splitlines()]
            cut = next((i for i, l in enumerate(lines[1:], 1) if l.startswith("frame")), len(lines))
            print("\n".join("  " + l for l in lines[:cut + 1]))
    finally:
        demo.close()
        display.close()
        subprocess.run(["rm", "-rf", temp])
    return 0


if __name__ == "__main__":
    sys.exit(main())
