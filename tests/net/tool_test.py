#!/usr/bin/env python3
"""tidewrack-tool run as a program: update, import, export, parse, dump and
html, with reader folders of the test's own and a local server.

  tests/net/tool_test.py TOOL
"""
import http.server
import json
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

TOOL = None


def rss(title, items):
    """An RSS 2.0 document: items as (guid, title, pubDate) triples."""
    out = '<?xml version="1.0" encoding="UTF-8"?>\n<rss version="2.0"><channel><title>%s</title>' \
          '<link>http://example.org/</link>\n' % title
    for guid, item_title, date in items:
        out += "<item><title>%s</title><guid>%s</guid>" % (item_title, guid)
        out += "<pubDate>%s</pubDate></item>\n" % date if date else "</item>\n"
    return out + "</channel></rss>\n"


class Site:
    """Documents by path on 127.0.0.1, changeable between runs; other paths give a 404 page."""

    def __init__(self):
        self.pages, self.hits = {}, {}
        site = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                site.hits[self.path] = site.hits.get(self.path, 0) + 1
                body = site.pages.get(self.path)
                self.send_response(200 if body is not None else 404)
                body = (body if body is not None else "<html><body>Not found</body></html>").encode()
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *args):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def url(self, path):
        return "http://127.0.0.1:%d%s" % (self.server.server_address[1], path)

    def close(self):
        self.server.shutdown()
        self.server.server_close()


def tool(*args):
    return subprocess.run([TOOL] + list(args), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, errors="surrogateescape")


JAN1, JAN2 = "Mon, 01 Jan 2024 10:00:00 GMT", "Tue, 02 Jan 2024 11:30:05 GMT"


class ToolTest(unittest.TestCase):
    def setUp(self):
        self.temp = tempfile.mkdtemp(prefix="tidewrack_tool_")
        self.folder = os.path.join(self.temp, "reader")
        self.site = Site()

    def tearDown(self):
        self.site.close()
        shutil.rmtree(self.temp, ignore_errors=True)

    def dump(self, folder=None):
        r = tool("dump", "-path", folder or self.folder)
        self.assertEqual(r.returncode, 0, r.stderr)
        return json.loads(r.stdout)

    def test_update_then_update_all_across_two_runs(self):
        self.site.pages["/a.xml"] = rss("A", [("a1", "one", JAN1), ("a2", "two", JAN2)])
        self.site.pages["/b.xml"] = rss("B", [("b1", "one", JAN1)])
        first = tool("update", "-path", self.folder, self.site.url("/a.xml"), self.site.url("/b.xml"))
        self.assertEqual((first.returncode, first.stderr), (0, ""))
        d = self.dump()
        self.assertEqual(d["counters"]["generation"], 1)
        self.assertEqual((len(d["feeds"]), len(d["entries"])), (2, 3))
        entries = {e["guid"]: e for e in d["entries"]}
        self.assertEqual(entries["a2"]["pub_date"], "2024-01-02 11:30:05")

        # Second run: a2 again with a later date, and "update all".
        self.site.pages["/a.xml"] = rss("A", [("a1", "one", JAN1), ("a2", "two!", "Fri, 05 Jan 2024 09:00:00 GMT")])
        second = tool("update", "-path", self.folder)
        self.assertEqual(second.returncode, 0, second.stderr)
        d = self.dump()
        self.assertEqual(d["counters"]["generation"], 2)
        entries = {e["guid"]: e for e in d["entries"]}
        self.assertEqual(len(d["entries"]), 3)
        self.assertEqual((entries["a2"]["generation"], entries["a2"]["title"]), (2, "two!"))
        self.assertEqual(entries["a1"]["generation"], 1)
        self.assertEqual(self.site.hits["/b.xml"], 2)

    def test_a_failed_fetch_is_reported_and_gives_status_1(self):
        refused = "http://127.0.0.1:1/x.xml"
        r = tool("update", "-path", self.folder, refused)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr, "Error while retrieving feed: " + refused +
                         "\n    Returned (5) http_error_internet_open_url\n")
        self.assertEqual(self.dump()["feeds"], [])

    def test_a_failed_save_has_its_own_status_and_the_systems_reason(self):
        # Folders under the temporary names of the next two minutes' saves.
        now = time.time()
        for s in range(120):
            name = time.strftime("feed_data_%Y%m%d_%H%M%S.bin.tmp", time.gmtime(now + s))
            os.makedirs(os.path.join(self.folder, name))
        r = tool("update", "-path", self.folder)
        self.assertEqual(r.returncode, 3)
        self.assertEqual(r.stderr, "tidewrack-tool: the reader could not be saved in %s: Is a directory\n" % self.folder)

    def test_a_full_reader_keeps_what_fits_says_so_once_and_gives_status_1(self):
        urls = []
        for i in range(130):  # more feeds than fit, more addresses than the tool once took
            self.site.pages["/f%d.xml" % i] = rss("F%d" % i, [("g", "item", "")])
            urls.append(self.site.url("/f%d.xml" % i))
        r = tool("update", "-path", self.folder, *urls)
        self.assertEqual(r.returncode, 1)
        self.assertIn("The reader is full (feeds)", r.stderr)
        self.assertEqual(r.stderr.count("The reader is full"), 1, "once per update")
        self.assertEqual(len(self.dump()["feeds"]), 100)

    def test_export_writes_the_list_and_import_reads_it_back(self):
        urls = [self.site.url(p) for p in ("/1.xml", "/2.xml")]
        for p in ("/1.xml", "/2.xml"):
            self.site.pages[p] = rss(p, [(p, "x", JAN1)])
        self.assertEqual(tool("update", "-path", self.folder, *urls).returncode, 0)
        listed = os.path.join(self.temp, "list.txt")
        self.assertEqual(tool("export", "-path", self.folder, listed).returncode, 0)
        self.assertEqual(sorted(open(listed).read().splitlines()), urls)
        self.assertEqual(open(listed).read().count("\n"), 2)

        other = os.path.join(self.temp, "other")
        r = tool("import", "-path", other, listed)
        self.assertEqual(r.returncode, 0, r.stderr)
        d = self.dump(other)
        self.assertEqual((len(d["feeds"]), d["counters"]["generation"]), (2, 1))
        self.assertNotEqual(tool("import", "-path", other, self.temp + "/no-such-list.txt").returncode, 0)

    def test_a_damaged_snapshot_is_named_and_nothing_is_touched(self):
        os.makedirs(self.folder)
        bad = os.path.join(self.folder, "feed_data_20990101_000000.bin")
        with open(bad, "wb") as f:
            f.write(b"feed\x01\x00\x00\x00 not really a reader file")
        for args in (["update", "-path", self.folder], ["dump", "-path", self.folder],
                     ["export", "-path", self.folder, self.temp + "/l.txt"]):
            r = tool(*args)
            self.assertNotEqual(r.returncode, 0, args[0])
            self.assertIn(bad, r.stderr)
        self.assertEqual(os.listdir(self.folder), ["feed_data_20990101_000000.bin"])
        self.assertNotEqual(tool("dump", bad).returncode, 0)

    def test_parse_reads_a_local_document_under_its_address(self):
        document = os.path.join(self.temp, "doc.xml")
        with open(document, "w") as f:
            f.write(rss('Quote " back \\ slash', [("g1", "tab\there", JAN1)]))
        r = tool("parse", "-path", self.folder, "--url", "http://example.org/feed", document)
        self.assertEqual(r.returncode, 0, r.stderr)
        d = self.dump()
        self.assertEqual([(f["url"], f["title"]) for f in d["feeds"]], [("http://example.org/feed", 'Quote " back \\ slash')])
        self.assertEqual(d["entries"][0]["title"], "tab\there")
        # Without --url the file's path is the address.
        self.assertEqual(tool("parse", "-path", self.folder, document).returncode, 0)
        self.assertEqual(len(self.dump()["feeds"]), 2)

    def test_json_feeds_of_both_versions_become_atom_records(self):
        def parse(name, document, url):
            path = os.path.join(self.temp, name)
            with open(path, "w" if isinstance(document, str) else "wb") as f:
                f.write(document if isinstance(document, str) else document)
            return tool("parse", "-path", self.folder, "--url", url, path)

        v11 = json.dumps({
            "version": "https://jsonfeed.org/version/1.1", "title": "Caf\u00e9 \"news\"", "home_page_url": "https://a.example/",
            "feed_url": "https://a.example/feed.json", "description": "About", "icon": "https://a.example/i.png",
            "authors": [{"name": "Ann", "url": "https://ann.example/"}],
            "items": [{"id": "2", "url": "https://a.example/2", "title": "Two", "content_html": "<p>a &amp; b</p>",
                       "date_published": "2024-01-02T10:00:00Z", "tags": ["x", "y"],
                       "attachments": [{"url": "https://a.example/2.mp3", "mime_type": "audio/mpeg", "size_in_bytes": 99}]},
                      {"id": 1, "content_text": "1 < 2 & 3", "summary": "s", "date_published": "2024-01-01T10:00:00Z",
                       "date_modified": "2024-01-03T10:00:00Z"},
                      {"id": "undated", "title": "never new enough"}]})
        v10 = ('{"version": "https://jsonfeed.org/version/1", "title": "Old", "author": {"name": "Bob"},'
               ' "items": [{"id": "a", "content_text": "t", "date_published": "2023-05-01T00:00:00Z"}]}')
        self.assertEqual(parse("a.json", v11, "https://a.example/feed.json").returncode, 0)
        self.assertEqual(parse("b.json", v10, "https://b.example/feed.json").returncode, 0)
        d = self.dump()
        a, b = d["feeds"]
        self.assertEqual((a["type"], a["title"], a["subtitle"], a["icon"], a["updated"]),
                         ("atom", 'Caf\u00e9 "news"', "About", "https://a.example/i.png", "2024-01-03 10:00:00"))
        entries = {e["atom_id"]: e for e in d["entries"]}
        self.assertEqual(sorted(entries), ["1", "2", "a"])
        self.assertEqual(entries["2"]["content"], "<p>a &amp; b</p>")
        self.assertEqual(entries["1"]["content"], "1 &lt; 2 &amp; 3")  # plain text shown as text
        self.assertEqual(entries["1"]["updated"], "2024-01-03 10:00:00")
        links = [(l["owner_kind"], l["rel"], l["href"], l["length"]) for l in d["atom_links"]]
        self.assertEqual(links, [(1, 0, "https://a.example/", 0), (1, 2, "https://a.example/feed.json", 0),
                                 (2, 0, "https://a.example/2", 0), (2, 3, "https://a.example/2.mp3", 99)])
        self.assertEqual(sorted(p["name"] for p in d["persons"]), ["Ann", "Bob"])
        self.assertEqual(sorted(c["term"] for c in d["categories"]), ["x", "y"])
        # A second read of the same document adds nothing.
        self.assertEqual(parse("a.json", v11, "https://a.example/feed.json").returncode, 0)
        self.assertEqual(len(self.dump()["entries"]), 3)

        # Bad documents end in a message naming the address and the reason, and nothing stored.
        bad = [("deep", '{"a": [' * 100000, "nests deeper"), ("cut", v11[:-40], "breaks the rules of JSON"),
               ("other", '{"version": "1.1", "items": []}', "no JSON Feed"),
               ("big", '{"version": "https://jsonfeed.org/version/1.1", "title": "' + "x" * (4 << 20) + '"', "breaks")]
        for name, document, reason in bad:
            url = "https://bad.example/" + name
            r = parse(name + ".json", document, url)
            self.assertEqual(r.returncode, 1, name)
            self.assertIn("No feed read from " + url + "\n    ", r.stderr)
            self.assertIn(reason, r.stderr)
        self.assertEqual(len(self.dump()["feeds"]), 2)

    def test_html_gives_tokens_tree_and_the_tokenizer_report_as_json(self):
        def html(text, *options):
            path = os.path.join(self.temp, "page.html")
            with open(path, "wb") as f:
                f.write(text)
            r = tool("html", *options, path)
            return r, json.loads(r.stdout) if r.stdout else None

        r, d = html(b'<!DOCTYPE html><p class="x">Hi &amp; bye<br></p>')
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(d["error"]["code"], 0)
        self.assertEqual(len(d["tokens"]), 5)  # doctype, p, text, br, /p
        self.assertEqual(d["tokens"][2]["text"], "Hi & bye")
        self.assertEqual(d["tree"][0]["attributes"]["class"], "x")

        r, d = html(b"<p>one \x01 two</p>")
        self.assertNotEqual(d["error"]["code"], 0)
        self.assertIn("\x01", d["log"])  # the line quoted as it stands
        self.assertEqual(html(b"<p>one \x01 two</p>", "--strict")[0].returncode, 0)

        # Unclosed tags nest as deep as there are tags, and all of it prints.
        r, d = html(b"<p>a" * 500)
        self.assertEqual(r.returncode, 0, r.stderr)
        depth, node = 1, d["tree"][0]
        while len(node.get("children", [])) == 2:
            depth, node = depth + 1, node["children"][1]
        self.assertEqual(depth, 500)

    def test_bad_command_lines_print_the_usage(self):
        for args in ([], ["frobnicate"], ["update", "-path"], ["export"], ["dump", "--nope"], ["decode", "utf-8"]):
            r = tool(*args)
            self.assertEqual(r.returncode, 2, args)
            self.assertIn("usage:", r.stderr)


if __name__ == "__main__":
    TOOL = os.path.abspath(sys.argv.pop(1))
    sys.setrecursionlimit(10000)  # the tree of 500 nested tags
    unittest.main()
