#!/usr/bin/env python3
"""tidewrack-tool against nginx from Debian on 127.0.0.1: compression,
conditional fetches, honest failures, feed discovery and JSON Feed.

  tests/net/nginx_test.py TOOL
"""
import gzip
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

TOOL = None
NGINX = shutil.which("nginx") or "/usr/sbin/nginx"

CONFIG = """
daemon off;
worker_processes 1;
pid {root}/nginx.pid;
error_log {root}/error.log;
events {{ worker_connections 64; }}
http {{
    log_format feeds '$status $bytes_sent $request_uri';
    access_log {root}/access.log feeds;
    client_body_temp_path {root}/tmp; proxy_temp_path {root}/tmp; fastcgi_temp_path {root}/tmp;
    uwsgi_temp_path {root}/tmp; scgi_temp_path {root}/tmp;
    types {{ application/rss+xml xml; application/feed+json json; text/html html; }}
    gzip on; gzip_min_length 0; gzip_proxied any;
    gzip_types application/rss+xml application/feed+json;
    server {{
        listen 127.0.0.1:{port};
        root {root}/www;
        location /coded/ {{ gzip off; add_header Content-Encoding gzip; }}
    }}
}}
"""


def rss(title, count, start=1):
    items = "".join('<item><title>Item %d</title><guid>g%d</guid><pubDate>Mon, %02d Jan 2024 10:00:00 GMT</pubDate>'
                    '<description>%s</description></item>\n' % (i, i, i, "words " * 200)
                    for i in range(start, start + count))
    return '<?xml version="1.0"?><rss version="2.0"><channel><title>%s</title>%s</channel></rss>\n' % (title, items)


def tool(*args, env=None):
    return subprocess.run([TOOL] + list(args), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, errors="surrogateescape", env=env)


class Nginx:
    def __init__(self, root):
        self.root = root
        os.makedirs(os.path.join(root, "www", "coded"))
        os.makedirs(os.path.join(root, "tmp"))
        with socket.socket() as s:
            s.bind(("127.0.0.1", 0))
            self.port = s.getsockname()[1]
        with open(os.path.join(root, "nginx.conf"), "w") as f:
            f.write(CONFIG.format(root=root, port=self.port))
        for d, _, _ in os.walk(root):
            os.chmod(d, 0o755)  # the workers may run as another user
        self.process = subprocess.Popen([NGINX, "-p", root, "-c", os.path.join(root, "nginx.conf"), "-e",
                                         os.path.join(root, "error.log")])
        while True:  # until it listens
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=5).close()
                break
            except OSError:
                if self.process.poll() is not None:
                    raise RuntimeError(open(os.path.join(root, "error.log")).read())
                time.sleep(0.02)

    def put(self, path, data):
        full = os.path.join(self.root, "www", path)
        with open(full, "wb") as f:
            f.write(data if isinstance(data, bytes) else data.encode())
        os.chmod(full, 0o644)

    def url(self, path):
        return "http://127.0.0.1:%d/%s" % (self.port, path)

    def log(self):
        """(status, bytes, uri) of each request so far; nginx writes each line when the request ends."""
        with open(os.path.join(self.root, "access.log")) as f:
            return [(int(s), int(b), u) for s, b, u in (line.split() for line in f)]

    def stop(self):
        self.process.terminate()
        self.process.wait()


class NginxTest(unittest.TestCase):
    def setUp(self):
        self.temp = tempfile.mkdtemp(prefix="tidewrack_nginx_")
        os.chmod(self.temp, 0o755)
        self.folder = os.path.join(self.temp, "reader")
        self.server = Nginx(os.path.join(self.temp, "server"))

    def tearDown(self):
        self.server.stop()
        shutil.rmtree(self.temp, ignore_errors=True)

    def dump(self):
        result = tool("dump", "-path", self.folder)
        self.assertEqual(result.returncode, 0, result.stderr)
        return json.loads(result.stdout)

    def titles(self):
        return sorted(e["title"] for e in self.dump()["entries"] if e["title"])

    def test_gzip_then_304_then_the_new_entry(self):
        document = rss("Gzipped", 20)
        self.server.put("a.xml", document)
        first = tool("update", "-path", self.folder, self.server.url("a.xml"))
        self.assertEqual(first.returncode, 0, first.stderr)
        status, sent, _ = self.server.log()[-1]
        self.assertEqual(status, 200)
        self.assertLess(sent, len(document) / 5)  # it came compressed, and was read whole
        self.assertEqual(len(self.titles()), 20)

        again = tool("update", "-path", self.folder)
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertEqual(self.server.log()[-1][0], 304)
        self.assertEqual(len(self.titles()), 20)

        self.server.put("a.xml", rss("Gzipped", 21))
        later = time.time() + 60  # a new Last-Modified and ETag, without waiting for the clock
        os.utime(os.path.join(self.server.root, "www", "a.xml"), (later, later))
        third = tool("update", "-path", self.folder)
        self.assertEqual(third.returncode, 0, third.stderr)
        self.assertEqual(self.server.log()[-1][0], 200)
        self.assertIn("Item 21", self.titles())

        # A damaged validators file is no stop: the feed is fetched whole and the file rebuilt.
        with open(os.path.join(self.folder, "validators.txt"), "w") as f:
            f.write("tidewrack validators 1 x\n\x00\x01")
        fourth = tool("update", "-path", self.folder)
        self.assertEqual(fourth.returncode, 0, fourth.stderr)
        self.assertEqual(self.server.log()[-1][0], 200)
        self.assertEqual(tool("update", "-path", self.folder).returncode, 0)
        self.assertEqual(self.server.log()[-1][0], 304)

    def test_bad_answers_say_what_came_back(self):
        self.server.put("page.html", "<!DOCTYPE html><html><head><title>x</title></head><body>Hi</body></html>")
        self.server.put("broken.xml", "<rss><channel><title>cut")
        # A bomb: 64 MB of spaces as 64 KB of gzip, and a lying Content-Encoding.
        self.server.put("coded/bomb.xml", gzip.compress(b"<rss>" + b" " * (64 << 20), 9))
        self.server.put("coded/liar.xml", rss("Plain", 1))
        whole = gzip.compress(rss("Cut", 50).encode())
        self.server.put("coded/cut.xml", whole[:len(whole) // 2])
        cases = [("missing.xml", "HTTP 404 Not Found"), ("page.html", "an HTML page with no feed link"),
                 ("broken.xml", "ends before its root element closes"),
                 ("coded/bomb.xml", "http_error_not_enough_storage"),
                 ("coded/liar.xml", "Returned"), ("coded/cut.xml", "ends before its root element closes")]
        for path, reason in cases:
            with self.subTest(path=path):
                result = tool("update", "-path", self.folder, self.server.url(path))
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertIn(self.server.url(path), result.stderr)
                self.assertIn(reason, result.stderr)
        self.assertEqual(self.dump()["feeds"], [])

    def test_a_blog_page_adds_the_feed_it_names(self):
        self.server.put("feed.xml", rss("Found", 2))
        self.server.put("index.html", '<!DOCTYPE html><html><head><base href="/">'
                        '<link rel="alternate" type="application/rss+xml" href="feed.xml">'
                        '<link rel="alternate" type="application/atom+xml" href="/atom.xml"></head></html>')
        found = tool("discover", self.server.url("index.html"))
        self.assertEqual(found.stdout.split(), [self.server.url("feed.xml"), self.server.url("atom.xml")])
        result = tool("update", "-path", self.folder, self.server.url("index.html"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("It also names:\n    " + self.server.url("atom.xml"), result.stderr)
        feeds = self.dump()["feeds"]
        self.assertEqual([f["url"] for f in feeds], [self.server.url("feed.xml")])

    def test_a_proxy_from_the_environment_is_used(self):
        # nginx answers a request in absolute form as its own: it stands in for a proxy.
        self.server.put("p.xml", rss("Proxied", 1))
        env = dict(os.environ, http_proxy="http://127.0.0.1:%d" % self.server.port, no_proxy="")
        result = tool("update", "-path", self.folder, "http://feeds.invalid/p.xml", env=env)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.server.log()[-1][2], "/p.xml")
        self.assertEqual([f["title"] for f in self.dump()["feeds"]], ["Proxied"])
        env["no_proxy"] = "feeds.invalid"  # and its exceptions too: the name is then looked up, and fails
        self.assertEqual(tool("update", "-path", self.folder, "http://feeds.invalid/q.xml", env=env).returncode, 1)


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
