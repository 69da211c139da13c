#!/usr/bin/env python3
"""Serves the demo feeds on 127.0.0.1 for the screenshot, the end-to-end
sessions and the start-up measurements. Nothing leaves the machine.

  tools/demo/serve.py [--port N] [--port-file FILE]

Prints its base address (http://127.0.0.1:PORT) as the first line of stdout,
and writes the port to FILE when asked. What it serves:

  /harbour-notes.xml, /the-drift.atom, /lighthouse-weekly.xml
                        the hand-written demo feeds (RSS 2.0, Atom, Latin-1 RSS)
  /images/*.png         their pictures (tools/demo/draw_images.py)
  /not-a-feed.html      a web page, not a feed
  /gen/NAME.xml?items=N&title=T
                        a made-up RSS feed of N items (default 10), the same
                        for the same name
  /twenty.opml          an OPML list of 20 feeds in two folders: 18 made-up
                        ones, the web page, and an address where nothing listens
  /dead                 the address where nothing listens, as text
  /han.xml?count=N      a feed of 100 items whose texts hold N distinct Han
                        characters (default 20000), from U+4E00 on

In the files, {base} stands for the base address.
"""
import argparse
import html
import os
import socket
import sys
import urllib.parse
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

SITE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "site")
TYPES = {".xml": "application/rss+xml", ".atom": "application/atom+xml", ".html": "text/html; charset=utf-8",
         ".png": "image/png", ".opml": "text/x-opml"}


def closed_port():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()
    return port


def generated_feed(base, name, items, title):
    days = ["Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"]
    out = ['<?xml version="1.0" encoding="UTF-8"?>\n<rss version="2.0"><channel>',
           "<title>%s</title><link>%s/gen/%s</link><description>Made-up feed %s</description>" %
           (html.escape(title), base, name, name)]
    for i in range(items):
        # One item an hour going back from 1 November 2026, 00:00 (a Sunday).
        hours = i + 1
        day = 31 - hours // 24
        out.append("<item><title>%s, item %d</title><link>%s/gen/%s/%d</link><guid>%s-%d</guid>"
                   "<pubDate>%s, %02d Oct 2026 %02d:00:00 GMT</pubDate>"
                   "<description>&lt;p&gt;Item %d of %s: a short paragraph of text.&lt;/p&gt;</description></item>" %
                   (html.escape(title), i + 1, base, name, i + 1, name, i + 1, days[(day + 4) % 7], day,
                    23 - hours % 24, i + 1, html.escape(name)))
    out.append("</channel></rss>\n")
    return "".join(out).encode()


def han_feed(base, count):
    characters = [chr(0x4E00 + i) for i in range(count)]
    per_item = (count + 99) // 100
    out = ['<?xml version="1.0" encoding="UTF-8"?>\n<rss version="2.0"><channel>',
           "<title>Han %d</title><link>%s/han</link><description>Distinct characters</description>" % (count, base)]
    for i in range(100):
        text = "".join(characters[i * per_item:(i + 1) * per_item])
        out.append("<item><title>%s</title><link>%s/han/%d</link><guid>han-%d</guid>"
                   "<pubDate>Sat, 31 Oct 2026 %02d:%02d:00 GMT</pubDate>"
                   "<description>&lt;p&gt;%s&lt;/p&gt;</description></item>" %
                   (text[:24], base, i, i, 23 - i // 60, 59 - i % 60, text))
    out.append("</channel></rss>\n")
    return "".join(out).encode()


def twenty_opml(base, dead):
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', '<opml version="2.0">', "<head><title>Twenty feeds</title></head>",
             "<body>"]
    for folder, numbers in (("Coast", range(1, 10)), ("Inland", range(10, 19))):
        lines.append('  <outline text="%s">' % folder)
        for n in numbers:
            lines.append('    <outline text="Feed %d" type="rss" xmlUrl="%s/gen/demo-%02d.xml?items=5&amp;title=Feed+%02d"/>'
                         % (n, base, n, n))
        lines.append("  </outline>")
    lines.append('  <outline text="The web page" type="rss" xmlUrl="%s/not-a-feed.html"/>' % base)
    lines.append('  <outline text="Gone" type="rss" xmlUrl="%s"/>' % dead)
    lines += ["</body>", "</opml>", ""]
    return "\n".join(lines).encode()


class Handler(BaseHTTPRequestHandler):
    server_version = "demo"

    def log_message(self, *args):
        if self.server.verbose:
            super().log_message(*args)

    def answer(self, body, kind, status=200):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        base = self.server.base
        url = urllib.parse.urlsplit(self.path)
        query = urllib.parse.parse_qs(url.query)
        path = url.path
        if path.startswith("/gen/") and path.endswith(".xml"):
            name = path[5:-4]
            items = int(query.get("items", ["10"])[0])
            title = query.get("title", [name])[0]
            return self.answer(generated_feed(base, name, items, title), TYPES[".xml"])
        if path == "/han.xml":
            return self.answer(han_feed(base, int(query.get("count", ["20000"])[0])), TYPES[".xml"])
        if path == "/twenty.opml":
            return self.answer(twenty_opml(base, self.server.dead), TYPES[".opml"])
        if path == "/dead":
            return self.answer(self.server.dead.encode(), "text/plain")
        local = os.path.normpath(os.path.join(SITE, path.lstrip("/")))
        if not local.startswith(SITE + os.sep) or not os.path.isfile(local):
            return self.answer(b"<html><body>Not found</body></html>", TYPES[".html"], 404)
        with open(local, "rb") as f:
            body = f.read()
        extension = os.path.splitext(local)[1]
        if extension != ".png":
            body = body.replace(b"{base}", base.encode())
        self.answer(body, TYPES.get(extension, "application/octet-stream"))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--port-file")
    parser.add_argument("--verbose", action="store_true")
    args = parser.parse_args()
    server = ThreadingHTTPServer(("127.0.0.1", args.port), Handler)
    server.daemon_threads = True
    port = server.server_address[1]
    server.base = "http://127.0.0.1:%d" % port
    server.dead = "http://127.0.0.1:%d/gone.xml" % closed_port()
    server.verbose = args.verbose
    if args.port_file:
        with open(args.port_file + ".part", "w") as f:
            f.write("%d\n" % port)
        os.replace(args.port_file + ".part", args.port_file)
    print(server.base, flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    sys.exit(main())
