// Tree construction: nesting, vocabulary, white space, walk order.
#include <gtest/gtest.h>

#include "html_test_util.h"

using namespace html_test;

struct tree_case_t {
    std::string input;
    std::string tolerant; // the tree built in tolerant mode
    u32 strict_error;     // the error of strict mode
};

TEST(HtmlTree, Shapes) {
    tree_case_t cases[] = {
        {"<p>one<p>two", "p('one' p('two'))", 31},
        {"<b><i></b></i>", "b(i)", 31}, // unclosed tags replace the first error
        {"<p>  a  </p>  <p>  b  </p>", "p('a ') p('b ')", 0}, {"<b>a</b> <i>b</i>", "b('a') ' ' i('b')", 0},
        {"a<br>   b", "'a' br 'b'", 0}, {"<pre>\nx  y</pre>", "pre('x  y')", 0}, {"<pre>\r\nx</pre>", "pre('x')", 0},
        {"<pre>\n\nx</pre>", "pre('\nx')", 0}, {"<pre>\rx</pre>", "pre('\rx')", 0},
        {"<pre>x</pre> a  b", "pre('x') 'a b'", 0},
        // Only the first text after the pre start drops its newline.
        {"<pre><b>\nx</b>\ny</pre>", "pre(b('x') '\ny')", 0}, {"<textarea>\n</textarea> a  b", "textarea ' a  b'", 0},
        {"<div data-x=\"1\">t</div>", "div('t')", 28}, {"<a src=\"x\">t</a>", "a('t')", 29},
        {"<a href=\"x\" href=\"y\">t</a>", "a[href=x]('t')", 30}, {"<a data-x=1 href=x>t</a>", "a[href=x]('t')", 28},
        {"<DIV>text</DIV>", "'text'", 24}, {"<div>in<custom>deep</custom>out</div>", "div('in' 'deep' 'out')", 31},
        {"<br/>x<br>", "br 'x' br", 0}, {"</br>", "", 26}, {"</custom>", "", 25}, {"<div/>text", "div 'text'", 0},
        {"", "", 0}, {"<!doctype html><!--c--><![CDATA[d]]>x", "'x'", 0},
        {"<img src=a.png alt=\"A b\" width=3>", "img[src=a.png][alt=A b][width=3]", 0},
        {"<p id=x class=y lang=en onclick=z>", "p[id=x][class=y][lang=en][onclick=z]", 31},
        // End tags don't clear the last byte: the blank after a block survives.
        {"<ul>\n <li>a</li>\n <li>b</li>\n</ul>", "ul(li('a') ' ' li('b') ' ')", 0},
        {"<ul>\n <li>a </li>\n <li>b </li>\n</ul>", "ul(li('a ') li('b '))", 0},
        {"<p>a <b>b</b> c</p>", "p('a ' b('b') ' c')", 0}, {"<p>a<b> b </b> c</p>", "p('a' b(' b ') 'c')", 0},
        {"<div>x</div>\n<div>y</div>", "div('x') ' ' div('y')", 0}, {"<script>a  b</script>", "script('a b')", 0},
        {"<html><head><title>T</title></head><body><h1>H</h1></body></html>",
         "html(head(title('T')) body(h1('H')))", 0},
        {"<p><input type=checkbox checked></p>", "p(input[type=checkbox][checked])", 0},
        {"<pre>a</pre><pre>\nb</pre>", "pre('a') pre('b')", 0},
        {"<pre><pre>a</pre></pre> x  y", "pre(pre('a')) 'x y'", 0},
    };
    for (auto &c : cases) {
        parsed_t t(c.input, 1), s(c.input, 0);
        EXPECT_EQ(t.shape(), c.tolerant) << c.input;
        EXPECT_EQ(t.tree_error, 0u) << c.input;
        EXPECT_EQ(s.tree_error, c.strict_error) << c.input;
    }
}

// In strict mode the first error ends the tokens, and what was built
// before it is still a finished tree.
TEST(HtmlTree, StrictStopsAtFirstError) {
    parsed_t s("<div>a</div><custom>b</custom><p>c</p>", 0), unclosed("<div><span>x</span>", 0);
    EXPECT_EQ(s.tree_error, 24u);
    EXPECT_EQ(s.shape(), "div('a')");
    EXPECT_EQ(unclosed.tree_error, 31u);
    EXPECT_EQ(unclosed.shape(), "div(span('x'))");
}

TEST(HtmlTree, AttributeValuesAndLookups) {
    parsed_t p("<a href=\"x&amp;y\" download target=''>t</a>", 0);
    ASSERT_EQ(p.token_error + p.tree_error, 0u);
    html_node_t *a = html_node_child(p.tree.nodes, 0);
    ASSERT_TRUE(html_node_is_element(a, html_element_a));
    html_node_attribute_t *href = html_node_get_attribute(a, html_attr_href);
    ASSERT_TRUE(href);
    EXPECT_EQ(text(href->value), "x&y");
    ASSERT_TRUE(html_node_get_attribute(a, html_attr_download));
    EXPECT_EQ(html_node_get_attribute(a, html_attr_download)->value.used, 0u);
    EXPECT_EQ(html_node_get_attribute(a, html_attr_src), nullptr);
    EXPECT_EQ(a->children[0]->parent, a);
    EXPECT_EQ(a->parent, p.tree.nodes);
}

// The walk: entering and leaving in document order, voids and texts once.
TEST(HtmlTree, Traversal) {
    struct {
        const char *input;
        const char *walk;
    } cases[] = {
        {"", ""}, {"x", "'x'"},
        {"<p>a<b>b</b><br>c</p><div/>", "+p 'a' +b 'b' -b br 'c' -p +div -div"},
        {"<div><div><div>deep</div></div></div>", "+div +div +div 'deep' -div -div -div"},
    };
    for (auto &c : cases) {
        parsed_t p(c.input, 1);
        arena_t stack(html_tree_traversal_size(p.tokens.token_count + 1));
        html_tree_traversal_t walk =
            html_tree_traversal_create(&stack.data, p.tree.nodes, p.tree.node_count, &p.tree_error);
        ASSERT_EQ(p.tree_error, 0u);
        std::string out;
        auto name = [](const html_node_t *node) { return text(html_element_name(node->element)); };
        for (; html_tree_traversal_has_next(&walk); html_tree_traversal_step(&walk)) {
            html_node_t *node = html_tree_traversal_node(&walk);
            out += out.empty() ? "" : " ";
            if (node->kind == html_node_kind_text) out += "'" + text(node->text) + "'";
            else if (html_element_has_flag(node->element, html_element_void)) out += name(node);
            else out += (html_tree_traversal_entering(&walk) ? "+" : "-") + name(node);
        }
        EXPECT_EQ(out, c.walk) << c.input;
    }
    arena_t none(2);
    u32 error = 0;
    html_node_t root = {};
    html_tree_traversal_create(&none.data, &root, 10, &error);
    EXPECT_EQ(error, (u32)html_tree_traversal_error_not_enough_memory);
}

TEST(HtmlTree, SizesAndMemory) {
    parsed_t p("<p class=a>  text  </p>", 1);
    arena_t small(hp_tree_size(&p.tokens) - 1);
    u32 error = 0;
    html_tree_t tree = hp_tree_construction(&small.data, &p.tokens, 1, &error);
    EXPECT_EQ(error, (u32)html_tree_construction_error_not_enough_memory);
    EXPECT_EQ(small.data.used, 0u);
    EXPECT_EQ(tree.nodes, nullptr);
    // An error set on entry stays, also in tolerant mode.
    arena_t enough(hp_tree_size(&p.tokens));
    tree = hp_tree_construction(&enough.data, &p.tokens, 1, &error);
    EXPECT_EQ(error, (u32)html_tree_construction_error_not_enough_memory);
    EXPECT_EQ(tree.node_count, 0u);
}

// More children than a 16-bit count holds: the extra ones are dropped and
// the tree stays consistent.
TEST(HtmlTree, ManyChildren) {
    std::string input = "<div>";
    for (u32 i = 0; i < 70000; i++) input += "<br>";
    input += "x</div>";
    parsed_t b(input, 1);
    EXPECT_EQ(b.tree_error, 0u);
    EXPECT_EQ(b.tree.node_count, 2u + 65535u);
}

// The one-call parse, with its arena kept alive.
struct document_t {
    u32 error = 0;
    std::string input;
    data_t in;
    arena_t arena;
    html_document_t doc;
    explicit document_t(const std::string &s)
        : input(s), in(view(input)), arena(html_parse_document_size(&in)),
          doc(html_parse_document(&arena.data, &in, 1, &error)) {}
};

TEST(HtmlDocument, OneCall) {
    document_t d("<meta charset=windows-1252><p>caf\xE9 &amp; <a href=/x>more</a></p>");
    EXPECT_EQ(d.error, 0u);
    EXPECT_EQ(d.doc.tokens.encoding, 22u);
    std::string out;
    html_tree_walk(&d.arena.data, &d.doc.tree,
                   [](html_node_t *node, bool entering, void *context) {
                       std::string *s = (std::string *)context;
                       if (node->kind == html_node_kind_text) *s += "'" + text(node->text) + "'";
                       else if (entering) *s += "<" + text(html_element_name(node->element)) + ">";
                   },
                   &out, &d.error);
    EXPECT_EQ(out, "<meta><p>'caf\xC3\xA9 & '<a>'more'");
    // A tokenizer error keeps the tokens before it and still gives a tree.
    document_t broken("<p>ok</p><p a=\"x");
    EXPECT_EQ(broken.error, (u32)html_tokenizer_error_eof_quoted_attribute_value);
    EXPECT_EQ(broken.doc.tree.node_count, 3u);
}
