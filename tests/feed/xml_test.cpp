// The tag scanner and the tree builder on short inputs.
#include <random>

#include "feed_fixture.h"

using namespace feed_test;

namespace {

struct scanner_t {
    std::vector<u8> memory;
    data_t block;
    std::string input;
    xml_scan_t scan;
    explicit scanner_t(const std::string &text, u64 size = 0x800000) : memory(size), input(text) {
        block = data_t{size, 0, memory.data()};
        data_t in = view(input);
        scan = xml_scan_tags(&block, &in);
    }
    xml_tree_t tree() { return xml_build_tree(&block, &scan); }
};

// Tags as "/name" (closing), "name/" (self-closing), "name[c]" (CDATA),
// "name[!]" (comment), "name[?]" (declaration).
std::string describe(const xml_scan_t &scan) {
    std::string s;
    for (u64 i = 0; i < scan.count; i++) {
        const xml_tag_t &t = scan.tags[i];
        s += std::string(i ? " " : "") + (t.is_closing ? "/" : "") + text(t.name) + (t.is_self_closing ? "/" : "") +
             (t.is_cdata ? "[c]" : "") + (t.is_comment ? "[!]" : "") + (t.is_xml_declaration ? "[?]" : "");
    }
    return s;
}

// A node as name(attribute=value,...)"text"{children}; "?" for other names.
std::string describe(const xml_node_t *node) {
    auto name = [](u32 i, u32 count, const char *const *names) { return i < count ? names[i] : "?"; };
    std::string s = name(node->name_index, xml_element_name_count, xml_element_names);
    for (u32 i = 0; i < node->attribute_count; i++) {
        const xml_attribute_t *a = node->attributes[i];
        s += (i ? "," : "(") + std::string(name(a->name_index, xml_attribute_name_count, xml_attribute_names)) + "=" +
             text(a->value) + (i + 1 == node->attribute_count ? ")" : "");
    }
    if (node->text.used) s += "\"" + text(node->text) + "\"";
    for (u32 i = 0; i < node->child_count; i++) s += (i ? "," : "{") + describe(node->children[i]);
    return node->child_count ? s + "}" : s;
}

} // namespace

TEST(FeedScanner, Tags) {
    const char *quote_open = "'<' inside an already opened tag.\n";
    struct {
        std::string input, tags, log;
    } cases[] = {
        {"", "", ""},
        {"text only, it's \"quoted\" > here", "", ""},
        {"<a href=\"x>y\">", "a", ""},
        {"<a title='it\"s'>x</a>", "a /a", ""},
        {"<!-- a > b <c> -- > -->", "!--[!]", ""},
        {"<![CDATA[ <b>x</b> ]>]]>", "![CDATA[[c]", ""},
        {"<?xml version=\"1.0\"?>", "xml[?]", ""},
        {"<?xml version=\"1.0\">", "xml[?]", "Malformed xml tag.\n"},
        {"<?XmL-stylesheet href=\"a\"?>", "XmL-stylesheet[?]", ""},
        {"<?php ?><!DOCTYPE html>", "?php !DOCTYPE", ""},
        {"<item/><item /></item >", "item// item/ /item", ""}, // the name keeps a "/" that follows it
        {"<content:encoded><rdf:RDF><atom:link/>", "content rdf atom/", ""},
        {"<a\tb=\"1\">", "a", ""},
        {"<a <b>", "a", quote_open},
        {"<a>x<b", "a", ""},
        {"<a b=\"x>", "", ""},
        {"</>", "//", ""},
        {"<!--><!---><![CDATA[>", "!--[!]", ""}, // "<!-->" needs its own "-->"
        {"<?xm>", "?xm", ""},
    };
    for (const auto &c : cases) {
        u64 mark = log_mark();
        scanner_t s(c.input);
        EXPECT_EQ(describe(s.scan), c.tags) << c.input;
        EXPECT_EQ(log_since(mark), c.log) << c.input;
    }
}

TEST(FeedScanner, AttributesAndTree) {
    const char *bad_value = "Attribute value doesn't start with ' or \".\n";
    struct {
        std::string input, first_node, log;
    } cases[] = {
        {"<enclosure url = \"u\" length='12' type =\"a\"/>", "enclosure(url=u,length=12,type=a)", ""},
        {"<a b=c href=\"h\" rel=/>", "?(href=h)", std::string(bad_value) + bad_value},
        {"<a href=\"1\"\ttype=\"2\" HREF=\"3\" xmlns:x=\"4\" novalue/>", "?(href=1,?=2,?=3,?=4)", ""},
        {"<atom:link href=\"1\" rel=\"2\"/>", "?(?=1,rel=2)", ""}, // attributes start at the colon
        {"<?xml version=\"1.0\" encoding='cp1252'?><rss></rss>", "xml(version=1.0,encoding=cp1252){rss}", ""},
        {"<rss><channel><title>T</title><item><title>x</title></item></channel></rss>",
         "rss{channel{title\"T\",item{title\"x\"}}}", ""},
        {"<title><![CDATA[a<b>]]><!-- c --></title>", "title{cdata\"a<b>\",comment\" c \"}", ""},
        {"<description>a<b>c</b>d</description>", "description{?\"c\"}", ""},
        {"<item></item>", "item", ""},
        {"<a><a>in</a></a>", "?{?\"in\"}", ""},
        {"<a><b></a></b>", "?{?{?}}", ""},           // b keeps the stray </a> as a child
        {"<x><a><b></b></x>", "?{?{?,?},?}", ""},   // unclosed a leaves b to x as well
        {"<a></b></b>x</a>", "?{?}", ""},            // a stray closing tag ends at the next of its name
        {"<t>AT&amp;T &lt;b&gt;</t>", "?\"AT&amp;T &lt;b&gt;\"", ""},
    };
    for (const auto &c : cases) {
        u64 mark = log_mark();
        scanner_t s(c.input);
        xml_tree_t tree = s.tree();
        ASSERT_GT(tree.node_count, 0u) << c.input;
        EXPECT_EQ(describe(xml_tree_node(&tree, 0)), c.first_node) << c.input;
        EXPECT_EQ(log_since(mark), c.log) << c.input;
    }
}

// The driver finds `channel` and the last `rdf` before it by creation order.
TEST(FeedScanner, NodesAreMadeInTheOrderOfTheirParents) {
    scanner_t s("<?xml?><rdf:RDF><channel><items><rdf:Seq><rdf:li/></rdf:Seq></items></channel>"
                "<item><title>t</title></item></rdf:RDF>");
    xml_tree_t tree = s.tree();
    std::string names;
    for (u32 i = 0; i < tree.node_count; i++) {
        u32 n = xml_tree_node(&tree, i)->name_index;
        names += std::string(n < xml_element_name_count ? xml_element_names[n] : "?") + " ";
    }
    EXPECT_EQ(names, "? rdf channel item ? rdf rdf title ");
}

// The table of names and the forward walk must give every tag the same end.
TEST(FeedScanner, MatchingEndsAgreeWithTheWalk) {
    std::mt19937 random(12345);
    const char *names[] = {"a", "b", "rdf:x", "rdf:y"};
    for (int round = 0; round < 300; round++) {
        std::string doc;
        for (int t = 0, n = 1 + (int)(random() % 60); t < n; t++) {
            const char *name = names[random() % 4];
            u32 kind = random() % 4;
            doc += std::string(kind == 0 ? "</" : "<") + name + (kind == 1 ? "/>" : ">");
        }
        scanner_t fast(doc, 0x8000), slow(doc, 0x8000);
        xml_match_ends(&fast.block, &fast.scan);
        xml_match_ends_by_walking(&slow.scan);
        for (u64 i = 0; i < fast.scan.count; i++)
            ASSERT_EQ(fast.scan.tags[i].end_index, slow.scan.tags[i].end_index) << doc << " tag " << i;
    }
}

// Past its memory the scan, past its blocks the build, stops with what it
// has, and says so.
TEST(FeedScanner, FullTreeBlocksStopTheBuild) {
    std::string many_nodes = "<list>", nested, attributes = "<a ";
    for (int i = 0; i < 17000; i++) many_nodes += "<i/>";
    for (int i = 0; i < 700; i++) nested += "<a>"; // each one's children are all that follow
    for (int i = 0; i < 33000; i++) attributes += "x=\"\" ";
    {
        u64 mark = log_mark();
        scanner_t s(many_nodes, 72 * 100);
        EXPECT_EQ(s.scan.count, 100u);
        EXPECT_NE(log_since(mark).find("The feed has more tags than there is room for"), std::string::npos);
    }
    for (const std::string &input : {many_nodes, nested, attributes + "/>"}) {
        u64 mark = log_mark();
        scanner_t s(input);
        xml_tree_t tree = s.tree();
        EXPECT_TRUE(tree.truncated);
        EXPECT_EQ(log_since(mark), "The feed has more elements than its tree can hold.\n");
    }
}
