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
        {"<p>  a  </p>  <p>  b  </p>", "p('a ') p('b ')", 0},
        {"<b>a</b> <i>b</i>", "b('a') ' ' i('b')", 0},
        {"a<br>   b", "'a' br 'b'", 0},
        {"<pre>\nx  y</pre>", "pre('x  y')", 0},
        {"<pre>\r\nx</pre>", "pre('x')", 0},
        {"<pre>\n\nx</pre>", "pre('\nx')", 0},
        {"<pre>\rx</pre>", "pre('\rx')", 0},
        {"<pre>x</pre> a  b", "pre('x') 'a b'", 0},
        // Only the first text after the pre start drops its newline.
        {"<pre><b>\nx</b>\ny</pre>", "pre(b('x') '\ny')", 0},
        {"<textarea>\n</textarea> a  b", "textarea ' a  b'", 0},
        {"<div data-x=\"1\">t</div>", "div('t')", 28},
        {"<a src=\"x\">t</a>", "a('t')", 29},
        {"<a href=\"x\" href=\"y\">t</a>", "a[href=x]('t')", 30},
        {"<a data-x=1 href=x>t</a>", "a[href=x]('t')", 28},
        {"<DIV>text</DIV>", "'text'", 24},
        {"<div>in<custom>deep</custom>out</div>", "div('in' 'deep' 'out')", 31},
        {"<custom>deep</custom>", "'deep'", 24},
        {"<br/>x<br>", "br 'x' br", 0},
        {"</br>", "", 26},
        {"</custom>", "", 25},
        {"<div/>text", "div 'text'", 0},
        {"", "", 0},
        {"<!doctype html><!--c--><![CDATA[d]]>x", "'x'", 0},
        {"<img src=a.png alt=\"A b\" width=3>", "img[src=a.png][alt=A b][width=3]", 0},
        {"<p id=x class=y lang=en onclick=z>", "p[id=x][class=y][lang=en][onclick=z]", 31},
        {"<td colspan=2 rowspan=1 cell>x</td>", "td[colspan=2][rowspan=1][cell]('x')", 0},
        // End tags don't clear the last byte: the blank after a block survives.
        {"<ul>\n <li>a</li>\n <li>b</li>\n</ul>", "ul(li('a') ' ' li('b') ' ')", 0},
        {"<ul>\n <li>a </li>\n <li>b </li>\n</ul>", "ul(li('a ') li('b '))", 0},
        {"<p>a <b>b</b> c</p>", "p('a ' b('b') ' c')", 0},
        {"<p>a<b> b </b> c</p>", "p('a' b(' b ') 'c')", 0},
        {"<span>x</span>\n<span>y</span>", "span('x') ' ' span('y')", 0},
        {"<div>x</div>\n<div>y</div>", "div('x') ' ' div('y')", 0},
        {"<script>a  b</script>", "script('a b')", 0},
        {"<html><head><title>T</title></head><body><h1>H</h1></body></html>",
         "html(head(title('T')) body(h1('H')))", 0},
        {"<p><input type=checkbox checked></p>", "p(input[type=checkbox][checked])", 0},
        {"<pre>a</pre><pre>\nb</pre>", "pre('a') pre('b')", 0},
        {"<pre><pre>a</pre></pre> x  y", "pre(pre('a')) 'x y'", 0},
    };
    for (auto &c : cases) {
        built_t t = build(c.input, 1);
        EXPECT_EQ(t.tree, c.tolerant) << c.input;
        EXPECT_EQ(t.tree_error, 0u) << c.input;
        built_t s = build(c.input, 0);
        EXPECT_EQ(s.tree_error, c.strict_error) << c.input;
    }
}

// In strict mode the first error ends the tokens, and what was built
// before it is still a finished tree.
TEST(HtmlTree, StrictStopsAtFirstError) {
    built_t s = build("<div>a</div><custom>b</custom><p>c</p>", 0);
    EXPECT_EQ(s.tree_error, 24u);
    EXPECT_EQ(s.tree, "div('a')");
    s = build("<div><span>x</span>", 0);
    EXPECT_EQ(s.tree_error, 31u);
    EXPECT_EQ(s.tree, "div(span('x'))");
}

TEST(HtmlTree, AttributeValuesAndLookups) {
    std::string input = "<a href=\"x&amp;y\" download target=''>t</a>";
    data_t in = view(input);
    arena_t token_arena(hp_tokenizer_size(&in));
    u32 error = 0;
    html_tokens_t tokens = hp_tokenizer(&token_arena.data, &in, 0, &error);
    arena_t tree_arena(hp_tree_size(&tokens));
    html_tree_t tree = hp_tree_construction(&tree_arena.data, &tokens, 0, &error);
    ASSERT_EQ(error, 0u);
    html_node_t *a = html_node_child(tree.nodes, 0);
    ASSERT_TRUE(html_node_is_element(a, html_element_a));
    EXPECT_TRUE(html_node_is_element(a, 0));
    EXPECT_FALSE(html_node_is_element(a, html_element_p));
    EXPECT_FALSE(html_node_is_text(a));
    html_node_attribute_t *href = html_node_get_attribute(a, html_attr_href);
    ASSERT_TRUE(href);
    EXPECT_EQ(text(href->value), "x&y");
    EXPECT_EQ(href->value.reserved, href->value.used);
    html_node_attribute_t *download = html_node_get_attribute(a, html_attr_download);
    ASSERT_TRUE(download);
    EXPECT_EQ(download->value.used, 0u);
    EXPECT_EQ(download->value.reserved, 0u);
    ASSERT_TRUE(html_node_get_attribute(a, html_attr_target));
    EXPECT_EQ(html_node_get_attribute(a, html_attr_src), nullptr);
    html_node_t *t = html_node_child(a, 0);
    ASSERT_TRUE(html_node_is_text(t));
    EXPECT_EQ(text(*html_node_text(t)), "t");
    EXPECT_EQ(html_node_text(a), nullptr);
    EXPECT_EQ(html_node_child(a, 1), nullptr);
    EXPECT_EQ(html_node_child(t, 0), nullptr);
    EXPECT_EQ(html_node_child(nullptr, 0), nullptr);
    EXPECT_FALSE(html_node_is_text(nullptr));
    EXPECT_FALSE(html_node_is_element(nullptr, 0));
    EXPECT_EQ(tree.node_count, 3u);
    EXPECT_EQ(tree.attribute_count, 3u);
    EXPECT_EQ(t->parent, a);
    EXPECT_EQ(a->parent, tree.nodes);
}

TEST(HtmlTree, Tables) {
    struct {
        const char *name;
        u32 id;
        u8 flags;
    } elements[] = {{"pre", 24, 0},
                    {"a", 36, html_element_inline},
                    {"br", 65, html_element_inline | html_element_void},
                    {"textarea", 101, html_element_inline},
                    {"style", 7, 0},
                    {"img", 71, html_element_inline | html_element_void},
                    {"script", 110, html_element_inline},
                    {"h1", 13, 0},
                    {"h6", 18, 0},
                    {"p", 21, 0},
                    {"hr", 23, html_element_void},
                    {"canvas", 113, html_element_inline},
                    {"html", 1, 0},
                    {"invalid", 0, 0},
                    {"P", 0, 0}};
    for (auto &e : elements) {
        EXPECT_EQ(html_element_find((const u8 *)e.name, strlen(e.name)), e.id) << e.name;
        if (e.id) EXPECT_EQ(html_element_has_flag(e.id, 3), e.flags) << e.name;
    }
    u32 inline_count = 0, void_count = 0;
    for (u32 i = 0; i < html_element_count; i++) {
        inline_count += html_element_has_flag(i, html_element_inline) != 0;
        void_count += html_element_has_flag(i, html_element_void) != 0;
    }
    EXPECT_EQ(inline_count, 7u + 47u);
    EXPECT_EQ(void_count, 14u);
    struct {
        const char *name;
        u32 id;
    } attributes[] = {{"id", 7}, {"href", 79}, {"src", 115}, {"alt", 117}, {"accesskey", 1}, {"onpaste", 77},
                      {"defer", 192}, {"data-x", 0}, {"ID", 0}, {"invalid", 0}, {"hre", 0}, {"hrefx", 0}};
    for (auto &a : attributes) EXPECT_EQ(html_attribute_find((const u8 *)a.name, strlen(a.name)), a.id) << a.name;
    EXPECT_TRUE(html_element_allows_attribute(html_element_div, html_attr_onpaste));
    EXPECT_FALSE(html_element_allows_attribute(html_element_div, html_attr_manifest));
    EXPECT_TRUE(html_element_allows_attribute(html_element_html, html_attr_manifest));
    EXPECT_TRUE(html_element_allows_attribute(html_element_canvas, html_attr_height));
    EXPECT_TRUE(html_element_allows_attribute(html_element_input, html_attr_width));
    EXPECT_FALSE(html_element_allows_attribute(html_element_input, html_attr_cols));
    EXPECT_TRUE(html_element_allows_attribute(html_element_th, html_attr_rowheader));
}

// The walk: entering and leaving in document order, voids and texts once.
TEST(HtmlTree, Traversal) {
    struct {
        const char *input;
        const char *walk;
    } cases[] = {
        {"", ""},
        {"<p>a<b>b</b><br>c</p><div/>", "+p 'a' +b 'b' -b br 'c' -p +div -div"},
        {"<ul><li></li></ul>", "+ul +li -li -ul"},
        {"x", "'x'"},
        {"<div><div><div>deep</div></div></div>", "+div +div +div 'deep' -div -div -div"},
    };
    for (auto &c : cases) {
        std::string input = c.input;
        data_t in = view(input);
        arena_t token_arena(hp_tokenizer_size(&in));
        u32 error = 0;
        html_tokens_t tokens = hp_tokenizer(&token_arena.data, &in, 0, &error);
        arena_t tree_arena(hp_tree_size(&tokens) + html_tree_traversal_size(tokens.token_count + 1));
        html_tree_t tree = hp_tree_construction(&tree_arena.data, &tokens, 1, &error);
        html_tree_traversal_t walk = html_tree_traversal_create(&tree_arena.data, tree.nodes, tree.node_count, &error);
        ASSERT_EQ(error, 0u);
        std::string out;
        while (html_tree_traversal_has_next(&walk)) {
            html_node_t *node = html_tree_traversal_node(&walk);
            if (!out.empty()) out += " ";
            if (node->kind == html_node_kind_text) out += "'" + text(node->text) + "'";
            else out += (html_tree_traversal_entering(&walk) ? "+" : "-") + text(html_element_name(node->element));
            if (html_element_has_flag(node->element, html_element_void) && node->kind == html_node_kind_element)
                out.erase(out.size() - text(html_element_name(node->element)).size() - 1, 1);
            html_tree_traversal_step(&walk);
        }
        EXPECT_EQ(out, c.walk) << c.input;
    }
    // Out of memory for the walk's stack.
    arena_t none(2);
    u32 error = 0;
    html_node_t root = {};
    html_tree_traversal_create(&none.data, &root, 10, &error);
    EXPECT_EQ(error, (u32)html_tree_traversal_error_not_enough_memory);
}

TEST(HtmlTree, SizesAndMemory) {
    std::string input = "<p class=a>  text  </p>";
    data_t in = view(input);
    arena_t token_arena(hp_tokenizer_size(&in));
    u32 error = 0;
    html_tokens_t tokens = hp_tokenizer(&token_arena.data, &in, 0, &error);
    u64 need = hp_tree_size(&tokens);
    arena_t small(need - 1);
    html_tree_t tree = hp_tree_construction(&small.data, &tokens, 1, &error);
    EXPECT_EQ(error, (u32)html_tree_construction_error_not_enough_memory);
    EXPECT_EQ(small.data.used, 0u);
    EXPECT_EQ(tree.nodes, nullptr);
    // An error set on entry stays, also in tolerant mode.
    arena_t enough(need);
    tree = hp_tree_construction(&enough.data, &tokens, 1, &error);
    EXPECT_EQ(error, (u32)html_tree_construction_error_not_enough_memory);
    EXPECT_EQ(tree.node_count, 0u);
}

// More children than a 16-bit count holds: the extra ones are dropped and
// the tree stays consistent.
TEST(HtmlTree, ManyChildren) {
    std::string input = "<div>";
    for (u32 i = 0; i < 70000; i++) input += "<br>";
    input += "x</div>";
    built_t b = build(input, 1);
    EXPECT_EQ(b.tree_error, 0u);
    EXPECT_EQ(b.node_count, 2u + 65535u);
}

TEST(HtmlDocument, OneCall) {
    std::string input = "<meta charset=windows-1252><p>caf\xE9 &amp; <a href=/x>more</a></p>";
    data_t in = view(input);
    arena_t arena(html_parse_document_size(&in));
    u32 error = 0;
    html_document_t doc = html_parse_document(&arena.data, &in, 1, &error);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(doc.tokens.encoding, 22u);
    std::string out;
    html_tree_walk(&arena.data, &doc.tree,
                   [](html_node_t *node, bool entering, void *context) {
                       std::string *s = (std::string *)context;
                       if (node->kind == html_node_kind_text) *s += "'" + text(node->text) + "'";
                       else if (entering) *s += "<" + text(html_element_name(node->element)) + ">";
                   },
                   &out, &error);
    EXPECT_EQ(out, "<meta><p>'caf\xC3\xA9 & '<a>'more'");
    // A tokenizer error keeps the tokens before it and still gives a tree.
    std::string broken = "<p>ok</p><p a=\"x";
    data_t broken_in = view(broken);
    arena_t arena2(html_parse_document_size(&broken_in));
    error = 0;
    doc = html_parse_document(&arena2.data, &broken_in, 1, &error);
    EXPECT_EQ(error, (u32)html_tokenizer_error_eof_quoted_attribute_value);
    EXPECT_EQ(doc.tree.node_count, 3u);
}

// The debugging dumps the command-line tools print.
TEST(HtmlDocument, Dumps) {
    std::string input = "<!doctype html><p class=x>a<br/><!--c--></p>";
    data_t in = view(input);
    arena_t arena(html_parse_document_size(&in));
    u32 error = 0;
    html_document_t doc = html_parse_document(&arena.data, &in, 1, &error);
    ASSERT_EQ(error, 0u);
    u64 mark = log_mark();
    hp_print_tokens(&doc.tokens);
    EXPECT_EQ(log_since(mark), "doctype legacy=0\nstart_tag: p self_closing=0\n    class=\"x\"\ntext: a\n"
                               "start_tag: br self_closing=1\ncomment: c\nend_tag: p\n");
    mark = log_mark();
    html_tree_print(&doc.tree);
    std::string tree = log_since(mark);
    EXPECT_NE(tree.find("p class=\"x\"\n"), std::string::npos) << tree;
    EXPECT_NE(tree.find("text_node: a\n"), std::string::npos) << tree;
    EXPECT_NE(tree.find("br\n"), std::string::npos) << tree;
}
