"""The end-to-end harness: a private X server, the demo server, the program
driven through xdotool, screenshots with ImageMagick, and the saved reader
read back with `tidewrack-tool dump`. Every wait fails saying what it waited for.
"""
import json
import os
import platform
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
BACKGROUND = (46, 46, 48)          # the window content's background, (0.18, 0.18, 0.19)
SELECTED_FEED = (0, 122, 204)      # a selected feed's block, (0, 0.48, 0.8)
SELECTED_ENTRY = (201, 82, 0)      # a selected entry's row, (0.79, 0.32, 0)
BLOCK = (63, 63, 68)               # a feed's block in the left panel, (0.25, 0.25, 0.27)
WHITE = (255, 255, 255)            # text boxes
# The system calls in which a thread waits for input: poll, select, epoll_wait,
# pselect6, ppoll, epoll_pwait.
WAITING_CALLS = {"aarch64": {"22", "72", "73"}}.get(platform.machine(), {"7", "23", "232", "270", "271", "281"})


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def wait_for(what, probe, timeout=30.0, step=0.05):
    """probe()'s first true value."""
    end = time.monotonic() + timeout
    while True:
        value = probe()
        if value:
            return value
        if time.monotonic() > end:
            raise Failure("timed out waiting for " + what)
        time.sleep(step)


def run(command, **kwargs):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **kwargs)


class Display:
    """Xvfb on a display number it picks itself."""

    def __init__(self, width=1280, height=800):
        read_end, write_end = os.pipe()
        self.process = subprocess.Popen(
            # -noreset: without it the server resets when its last client leaves, and a
            # program started during the reset finds no display; -r: no auto-repeat, so
            # that a key stays down, with one press, until the program has seen it
            ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "%dx%dx24" % (width, height), "-nolisten", "tcp",
             "-noreset", "-r"],
            pass_fds=(write_end,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write_end)
        with os.fdopen(read_end, "rb") as f:
            number = f.readline().strip()
        check(number, "Xvfb did not start")
        self.name = ":" + number.decode()
        self.env = dict(os.environ, DISPLAY=self.name, LIBGL_ALWAYS_SOFTWARE="1")
        self.env.pop("WAYLAND_DISPLAY", None)
        self.env.setdefault("ASAN_OPTIONS", "detect_leaks=0:abort_on_error=1")
        wait_for("the X server " + self.name,
                 lambda: run(["xdotool", "getdisplaygeometry"], env=self.env).returncode == 0, timeout=30, step=0.1)

    def close(self):
        self.process.terminate()
        self.process.wait()

    def xdotool(self, *args):
        return run(["xdotool"] + [str(a) for a in args], env=self.env).stdout.strip()


class Demo:
    """tools/demo/serve.py on 127.0.0.1."""

    def __init__(self):
        self.process = subprocess.Popen([sys.executable, os.path.join(ROOT, "tools", "demo", "serve.py")],
                                        stdout=subprocess.PIPE, text=True)
        self.base = self.process.stdout.readline().strip()
        check(self.base.startswith("http://127.0.0.1:"), "the demo server did not start")

    def url(self, path):
        return self.base + path

    close = Display.close


class Program:
    """One run of the program on a reader folder."""

    def __init__(self, display, binary, folder, args=(), cwd=None):
        self.display = display
        self.folder = folder
        self.process = subprocess.Popen([binary, "-path", folder] + list(args), env=display.env, cwd=cwd,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.window = wait_for("the program's window", self._find_window)
        # No window manager: the harness gives the focus, as a click would.
        display.xdotool("windowfocus", "--sync", self.window)
        self.stdout = self.stderr = ""

    def _find_window(self):
        if self.process.poll() is not None:
            raise Failure("the program ended before its window showed: " + self.process.stderr.read())
        found = self.display.xdotool("search", "--onlyvisible", "--class", "tidewrack").split()
        return found[0] if found else None

    def _main_thread(self, name):
        if self.process.poll() is not None:
            raise Failure("the program ended (status %d): %s" % (self.process.returncode,
                                                                 self.process.stderr.read()[-3000:]))
        with open("/proc/%d/task/%d/%s" % (self.process.pid, self.process.pid, name)) as f:
            return f.read()

    def _sleeps(self):
        """How often the main thread has gone to sleep so far."""
        status = self._main_thread("status")
        return int(status.split("voluntary_ctxt_switches:")[1].split()[0])

    def _unread(self):
        """Bytes that wait on the program's sockets (its X connection) unread."""
        inodes = set()
        for fd in os.listdir("/proc/%d/fd" % self.process.pid):
            try:
                target = os.readlink("/proc/%d/fd/%s" % (self.process.pid, fd))
            except OSError:
                continue
            if target.startswith("socket:["):
                inodes.add(target[8:-1])
        rows = [line.split() for line in run(["ss", "-xn"]).stdout.splitlines()[1:]]
        return sum(int(row[2]) for row in rows if len(row) >= 6 and row[5] in inodes)

    def _send(self, *args):
        """Input through xdotool; the request that follows it is answered
        only after the server has handled the input, so the program's events
        are on its connection when this returns. Then waits until the program
        has taken them: its main thread has woken, read all of its
        connection, and waits for input again. So a press and its release
        reach the program in different frames however long a frame takes."""
        sleeps = self._sleeps()
        # ("type" takes every argument behind it as text; its closing of the
        # display waits for the server all the same.)
        self.display.xdotool(*(args if args[0] == "type" else args + ("getmouselocation",)))
        state = {}

        def taken():
            state.update(sleeps=self._sleeps() - sleeps, call=self._main_thread("syscall").split()[0],
                         unread=self._unread())
            return state["sleeps"] > 0 and state["call"] in WAITING_CALLS and state["unread"] == 0
        try:
            wait_for("the program to take the input", taken, timeout=60, step=0.02)
        except Failure:
            raise Failure("the program did not take %s: %r" % (" ".join(map(str, args)), state))

    def key(self, *keys):
        for k in keys:
            self._send("keydown", k)
            self._send("keyup", k)

    def type(self, text):
        self._send("type", "--delay", 30, text)

    def click(self, x, y):
        """x, y from the window's top left."""
        for args in (("mousemove", "--window", self.window, x, y), ("mousedown", 1), ("mouseup", 1)):
            self._send(*args)

    def screenshot(self, path):
        if self.process.poll() is not None:
            raise Failure("the program ended (status %d): %s" % (self.process.returncode, self.process.stderr.read()[-3000:]))
        try:
            result = run(["import", "-window", self.window, path], env=self.display.env, timeout=30)
        except subprocess.TimeoutExpired:
            raise Failure("no screenshot of the window")
        check(result.returncode == 0, "import failed: " + result.stderr)
        return Image(path)

    def wait_drawn(self, what, probe, timeout=30.0):
        """The first screenshot for which probe(image) holds."""
        path = os.path.join(tempfile.gettempdir(), "tidewrack_e2e_%d.png" % os.getpid())

        def attempt():
            image = self.screenshot(path)
            return image if probe(image) else None
        try:
            return wait_for(what, attempt, timeout, step=0.2)
        except Failure:
            kept = os.path.join(tempfile.gettempdir(), "tidewrack_e2e_failed.png")
            shutil.copy(path, kept)
            raise Failure("timed out waiting for %s (the last screenshot: %s)" % (what, kept))

    def close(self, timeout=60.0):
        """As the close button does: the program stops its workers, purges,
        audits and saves. Returns the exit code."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            self.stdout, self.stderr = self.process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise Failure("the program did not end after the close request")
        return self.process.returncode


class Image:
    """A screenshot as RGB rows (ImageMagick writes it as a plain PPM)."""

    def __init__(self, path):
        self.path = path
        # P3 text: "P3 w h 255 r g b ..."
        data = subprocess.run(["convert", path, "-depth", "8", "-compress", "none", "ppm:-"],
                              stdout=subprocess.PIPE).stdout.split()
        check(data and data[0] == b"P3", "unreadable screenshot " + path)
        self.width, self.height = int(data[1]), int(data[2])
        values = list(map(int, data[4:]))
        self.pixels = [tuple(values[i:i + 3]) for i in range(0, len(values), 3)]

    def pixel(self, x, y):
        return self.pixels[y * self.width + x]

    def count(self, colour, tolerance=2):
        return sum(1 for p in self.pixels if all(abs(p[i] - colour[i]) <= tolerance for i in range(3)))

    def find(self, colour, tolerance=2):
        """The bounding box (left, top, right, bottom) of a colour, or None."""
        xs, ys = [], []
        for i, p in enumerate(self.pixels):
            if all(abs(p[k] - colour[k]) <= tolerance for k in range(3)):
                xs.append(i % self.width)
                ys.append(i // self.width)
        return (min(xs), min(ys), max(xs) + 1, max(ys) + 1) if xs else None

    def runs(self, x, colours, top=26, tolerance=2):
        """Vertical runs (top, bottom) of any of the colours in column x."""
        out, start = [], None
        for y in range(top, self.height + 1):
            inside = y < self.height and any(
                all(abs(self.pixel(x, y)[k] - c[k]) <= tolerance for k in range(3)) for c in colours)
            if inside and start is None:
                start = y
            elif not inside and start is not None:
                out.append((start, y))
                start = None
        return out

    def feed_blocks(self):
        """The feed blocks of the left panel, top to bottom, as (top, bottom, selected)."""
        return [(t, b, self.pixel(3, t) [2] > 150) for t, b in self.runs(3, (BLOCK, SELECTED_FEED)) if b - t >= 20]

    def text_boxes(self, column=1100):
        """White boxes at least 100 pixels wide across `column`, top to bottom, as (left, top, right, bottom)."""
        boxes = []
        for top, bottom in self.runs(column, (WHITE,), top=26, tolerance=0):
            if bottom - top < 10:
                continue
            y = (top + bottom) // 2
            x0 = column
            while x0 > 0 and self.pixel(x0 - 1, y) == WHITE:
                x0 -= 1
            x1 = column
            while x1 < self.width and self.pixel(x1, y) == WHITE:
                x1 += 1
            if x1 - x0 >= 100:
                boxes.append((x0, top, x1, bottom))
        return boxes


class Tool:
    def __init__(self, binary, env):
        self.binary = binary
        self.env = env

    def __call__(self, *args):
        return run([self.binary] + [str(a) for a in args], env=self.env)

    def dump(self, folder):
        result = self("dump", "-path", folder)
        check(result.returncode == 0, "dump failed: " + result.stderr)
        return json.loads(result.stdout)


def views_drawn(image):
    """Whether the window content is drawn: its background colour covers much of it."""
    return image.count(BACKGROUND, tolerance=3) > image.width * image.height // 4


class Session:
    """What every session gets: a temporary folder, an X server, the demo
    server, and the program and tool to run."""

    def __init__(self, program, tool):
        self.program_binary = program
        self.temp = tempfile.mkdtemp(prefix="tidewrack_e2e_")
        self.display = Display()
        self.demo = Demo()
        self.tool = Tool(tool, env=self.display.env)
        self.running = []

    def start(self, folder, args=(), cwd=None):
        p = Program(self.display, self.program_binary, folder, args, cwd)
        self.running.append(p)
        return p

    def folder(self, name):
        return os.path.join(self.temp, name)

    def close(self):
        for p in self.running:
            if p.process.poll() is None:
                p.process.kill()
                p.process.wait()
        self.demo.close()
        self.display.close()
        shutil.rmtree(self.temp, ignore_errors=True)


def main(sessions):
    """tests/e2e/e2e.py PROGRAM TOOL SESSION: runs one session; exit 0 or 1."""
    if len(sys.argv) != 4 or sys.argv[3] not in sessions:
        print("usage: e2e.py PROGRAM TOOL SESSION (%s)" % ", ".join(sorted(sessions)), file=sys.stderr)
        return 2
    for needed in ("Xvfb", "xdotool", "xprop", "import", "convert", "ss"):
        if not shutil.which(needed):
            print("missing %s: scripts/deps.sh test installs it" % needed, file=sys.stderr)
            return 1
    session = Session(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2]))
    try:
        return sessions[sys.argv[3]](session) or 0
    except Failure as failure:
        print("FAILED: %s" % failure, file=sys.stderr)
        for p in session.running:
            if p.stderr:
                print("program's stderr:\n" + p.stderr[-4000:], file=sys.stderr)
        return 1
    finally:
        session.close()
