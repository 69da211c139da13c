// The tag scanner and the tree builder on short inputs.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "feed_fixture.h"

using namespace feed_test;

namespace {

struct scanner_t {
    std::vector<u8> memory;
    data_t block = {};
    std::string input;
    xml_scan_t scan = {};
    scanner_t(const std::string &text, u64 size = 0x800000) : memory(size), input(text) {
        block = data_t{memory.size(), 0, memory.data()};
        data_t in = view(input);
        scan = xml_scan_tags(&block, &in);
    }
    xml_tree_t tree() { return xml_build_tree(&block, &scan); }
};

// A tag as a short string: "/" in front of a closing tag, "/" behind a
// self-closing one, and the kind in brackets.
std::string describe(const xml_tag_t &tag) {
    std::string s = tag.is_closing ? "/" : "";
    s += text(tag.name);
    if (tag.is_self_closing) s += "/";
    if (tag.is_cdata) s += "[cdata]";
    if (tag.is_comment) s += "[comment]";
    if (tag.is_xml_declaration) s += "[decl]";
    return s;
}

std::string describe(const xml_scan_t &scan) {
    std::string s;
    for (u64 i = 0; i < scan.count; i++) s += (i ? " " : "") + describe(scan.tags[i]);
    return s;
}

// A node with its attributes and children, e.g. a(href=x){b,#cdata"t"}.
std::string describe(const xml_node_t *node, int depth = 4) {
    std::string s = node->name_index < xml_element_name_count ? xml_element_names[node->name_index] : "?";
    if (node->attribute_count) {
        s += "(";
        for (u32 i = 0; i < node->attribute_count; i++) {
            const xml_attribute_t *a = node->attributes[i];
            if (i) s += ",";
            s += a->name_index < xml_attribute_name_count ? xml_attribute_names[a->name_index] : "?";
            s += "=" + text(a->value);
        }
        s += ")";
    }
    if (node->text.used) s += "\"" + text(node->text) + "\"";
    if (node->child_count && depth > 0) {
        s += "{";
        for (u32 i = 0; i < node->child_count; i++) s += (i ? "," : "") + describe(node->children[i], depth - 1);
        s += "}";
    }
    return s;
}

} // namespace

TEST(FeedScanner, Tags) {
    struct {
        const char *input;
        const char *tags;
        const char *log;
    } cases[] = {
        {"", "", ""},
        {"no tags at all, it's text", "", ""},
        {"<a href=\"x>y\">", "a", ""},
        {"<!-- a > b -->", "!--[comment]", ""},
        {"<!-- <a> -- > -->", "!--[comment]", ""},
        {"<![CDATA[ <b>x</b> ]]>", "![CDATA[[cdata]", ""},
        {"<![CDATA[a]>b]]>", "![CDATA[[cdata]", ""},
        {"<?xml version=\"1.0\"?>", "xml[decl]", ""},
        {"<?xml version=\"1.0\">", "xml[decl]", "Malformed xml tag.\n"},
        {"<?XmL?>", "XmL?[decl]", ""},
        {"<?xml-stylesheet href=\"a.xsl\"?>", "xml-stylesheet[decl]", ""},
        {"<?php x ?>", "?php", ""},
        {"<!DOCTYPE html>", "!DOCTYPE", ""},
        {"it's <a>x</a> don't \"q\"", "a /a", ""},
        {"<a title='it\"s'>", "a", ""},
        {"<a title=\"it's\">", "a", ""},
        {"<item/>", "item//", ""},
        {"<item />", "item/", ""},
        {"</item >", "/item", ""},
        {"<content:encoded>x</content:encoded>", "content /content", ""},
        {"<rdf:RDF><atom:link/>", "rdf atom/", ""},
        {"<a\tb=\"1\">", "a", ""},
        {"<a <b>", "a", "'<' inside an already opened tag.\n"},
        {"<a>x<b", "a", ""},
        {"<a b=\"x>", "", ""},
        {"<>", "", ""},
        {"</>", "//", ""},
        {"<!-->", "", ""},
        {"<!--->", "!--[comment]", ""},
        {"<![CDATA[>", "", ""},
        {"<!--", "", ""},
        {"<?xm", "?xm", ""},
        {">>> a > b", "", ""},
        {"<a><b/><c d='1'/></a>", "a b// c/ /a", ""},
    };
    for (const auto &c : cases) {
        u64 mark = log_mark(log_main);
        std::string input = c.input;
        if (input == "<?xm") input = "<?xm>"; // a question mark that is no declaration
        scanner_t s(input);
        EXPECT_EQ(describe(s.scan), c.tags) << c.input;
        EXPECT_EQ(log_since(log_main, mark), c.log) << c.input;
    }
}

TEST(FeedScanner, TagBoundsAndName) {
    scanner_t s("x<a href=\"1\">y</a>");
    ASSERT_EQ(s.scan.count, 2u);
    const xml_tag_t &open = s.scan.tags[0];
    EXPECT_EQ(open.start, (const u8 *)s.input.data() + 2);
    EXPECT_EQ(*open.end, '>');
    EXPECT_EQ(open.node, nullptr);
    const xml_tag_t &close = s.scan.tags[1];
    EXPECT_EQ(*close.start, '/');
    EXPECT_EQ(close.name.bytes, close.start + 1);

    scanner_t d("<?xml version=\"1.0\"?>");
    EXPECT_EQ(d.scan.tags[0].start, (const u8 *)d.input.data() + 2);
}

TEST(FeedScanner, Attributes) {
    struct {
        const char *input;
        const char *node;
        const char *log;
    } cases[] = {
        {"<enclosure url=\"u\" length='12' type=\"a/b\"/>", "enclosure(url=u,length=12,type=a/b)", ""},
        {"<a href=\"x>y\"/>", "?(href=x>y)", ""},
        {"<a href = \"x\"  rel =\"self\" title= 't'/>", "?(href=x,rel=self,title=t)", ""},
        {"<a b=c/>", "?", "Attribute value doesn't start with ' or \".\n"},
        {"<a b=c href=\"h\"/>", "?(href=h)", "Attribute value doesn't start with ' or \".\n"},
        {"<a href=\"1\"\ttype=\"2\"/>", "?(href=1,?=2)", ""},
        {"<a HREF=\"1\"/>", "?(?=1)", ""},
        {"<a xmlns:atom=\"1\" xmlns=\"2\"/>", "?(?=1,xmlns=2)", ""},
        {"<atom:link href=\"1\" rel=\"2\"/>", "?(?=1,rel=2)", ""},
        {"<a href=\"\"/>", "?(href=)", ""},
        {"<a novalue/>", "?", ""},
        {"<a href=/>", "?", "Attribute value doesn't start with ' or \".\n"},
        {"<?xml version=\"1.0\" encoding='windows-1252'?>", "xml(version=1.0,encoding=windows-1252)", ""},
    };
    for (const auto &c : cases) {
        u64 mark = log_mark(log_main);
        scanner_t s(c.input);
        xml_tree_t tree = s.tree();
        ASSERT_EQ(tree.node_count, 1u) << c.input;
        EXPECT_EQ(describe(xml_tree_node(&tree, 0)), c.node) << c.input;
        EXPECT_EQ(log_since(log_main, mark), c.log) << c.input;
    }
}

TEST(FeedScanner, NameTables) {
    for (u32 i = 0; i < xml_element_name_count; i++) {
        data_t name = data_from_pointer(xml_element_names[i], string_length(xml_element_names[i]));
        EXPECT_EQ(xml_name_index(&name), i);
    }
    for (u32 i = 0; i < xml_attribute_name_count; i++) {
        data_t name = data_from_pointer(xml_attribute_names[i], string_length(xml_attribute_names[i]));
        EXPECT_EQ(xml_attribute_index(&name), i);
    }
    for (const char *other : {"", "Title", "titles", "titl", "pubdate", "RSS"}) {
        data_t name = data_from_pointer(other, string_length(other));
        EXPECT_EQ(xml_name_index(&name), xml_element_other) << other;
    }
    data_t name = data_literal("isPermalink");
    EXPECT_EQ(xml_attribute_index(&name), xml_attribute_other);
}

TEST(FeedTree, Shapes) {
    struct {
        const char *input;
        const char *first; // the first node made, described
    } cases[] = {
        {"<rss><channel><title>T</title><item><title>x</title></item></channel></rss>",
         "rss{channel{title\"T\",item{title\"x\"}}}"},
        {"<title><![CDATA[a<b>]]></title>", "title{cdata\"a<b>\"}"},
        {"<description>a<b>c</b>d</description>", "description{?\"c\"}"},
        {"<item/>", "?"}, // the name takes the "/" along
        {"<item></item>", "item"},
        {"<a><b></a></b>", "?{?{?}}"}, // b keeps the stray </a> as a child
        {"<a><!-- c --><b/></a>", "?{comment\" c \",?}"},
        {"<a><cdata>x</cdata></a>", "?{cdata\"x\"}"},
        // An unclosed element leaves its children to its parent.
        {"<x><a><b></b></x>", "?{?{?,?},?}"},
        // A stray closing tag is a child; its own end is the next one of its name.
        {"<a></b></b>x</a>", "?{?}"},
        // The declaration is not self-closing, so the document hangs below it.
        {"<?xml version=\"1.0\"?><rss><channel></channel></rss>", "xml(version=1.0){rss{channel}}"},
        {"<a>one</a><a>two</a>", "?\"one\""},
        {"<a><a>in</a></a>", "?{?\"in\"}"},
        {"<title>AT&amp;T &lt;b&gt;</title>", "title\"AT&amp;T &lt;b&gt;\""},
    };
    for (const auto &c : cases) {
        scanner_t s(c.input);
        xml_tree_t tree = s.tree();
        ASSERT_GT(tree.node_count, 0u) << c.input;
        EXPECT_EQ(describe(xml_tree_node(&tree, 0)), c.first) << c.input;
        EXPECT_FALSE(tree.truncated);
    }
}

TEST(FeedTree, NodesAreMadeOnceInDocumentOrderOfTheirParents) {
    scanner_t s("<?xml?><rdf:RDF><channel><items><rdf:Seq><rdf:li/></rdf:Seq></items></channel>"
                "<item><title>t</title></item></rdf:RDF>");
    xml_tree_t tree = s.tree();
    std::vector<std::string> names;
    for (u32 i = 0; i < tree.node_count; i++) {
        u32 n = xml_tree_node(&tree, i)->name_index;
        names.push_back(n < xml_element_name_count ? xml_element_names[n] : "?");
    }
    std::vector<std::string> expected = {"?", "rdf", "channel", "item", "?", "rdf", "rdf", "title"};
    EXPECT_EQ(names, expected);
    for (u64 i = 0; i < s.scan.count; i++) {
        if (!s.scan.tags[i].is_closing) EXPECT_NE(s.scan.tags[i].node, nullptr) << i;
    }
}

// The table of names and the forward walk must give every tag the same end.
TEST(FeedTree, MatchingEndsAgreeWithTheWalk) {
    std::mt19937 random(12345);
    const char *names[] = {"a", "b", "c", "rdf:x", "rdf:y"};
    for (int round = 0; round < 300; round++) {
        std::string doc;
        int tags = 1 + (int)(random() % 60);
        for (int t = 0; t < tags; t++) {
            const char *name = names[random() % 5];
            switch (random() % 4) {
            case 0: doc += std::string("</") + name + ">"; break;
            case 1: doc += std::string("<") + name + "/>"; break;
            default: doc += std::string("<") + name + ">"; break;
            }
        }
        scanner_t fast(doc, 0x8000), slow(doc, 0x8000);
        xml_match_ends(&fast.block, &fast.scan);
        xml_match_ends_by_walking(&slow.scan);
        ASSERT_EQ(fast.scan.count, slow.scan.count);
        for (u64 i = 0; i < fast.scan.count; i++)
            ASSERT_EQ(fast.scan.tags[i].end_index, slow.scan.tags[i].end_index) << doc << " tag " << i;
    }
}

TEST(FeedTree, MatchingEndsWithoutRoomForTheTableWalk) {
    std::string doc = "<a><b></b><a></a></a></b>";
    std::vector<u8> memory(0x1000);
    data_t block = {memory.size(), 0, memory.data()};
    data_t in = view(doc);
    xml_scan_t scan = xml_scan_tags(&block, &in);
    block.used = block.reserved; // nothing left for the table
    xml_match_ends(&block, &scan);
    std::vector<u32> ends;
    for (u64 i = 0; i < scan.count; i++) ends.push_back(scan.tags[i].end_index);
    std::vector<u32> expected = {5, 2, 6, 4, 5, xml_tag_no_end, xml_tag_no_end};
    EXPECT_EQ(ends, expected);
}

// Documents past the tree's blocks keep what was built and say so.
TEST(FeedTree, FullBlocksStopTheBuild) {
    struct {
        std::string input;
    } cases[] = {
        {[] { std::string s = "<list>"; for (int i = 0; i < 17000; i++) s += "<i/>"; return s + "</list>"; }()},
        {[] { std::string s; for (int i = 0; i < 700; i++) s += "<a>"; return s; }()},
        {[] { std::string s = "<a "; for (int i = 0; i < 33000; i++) s += "x=\"\" "; return s + "/>"; }()},
    };
    for (const auto &c : cases) {
        u64 mark = log_mark(log_main);
        scanner_t s(c.input);
        xml_tree_t tree = s.tree();
        EXPECT_TRUE(tree.truncated);
        EXPECT_LE(tree.node_count, xml_node_capacity);
        EXPECT_EQ(log_since(log_main, mark), "The feed has more elements than its tree can hold.\n") << c.input.substr(0, 20);
    }
}
