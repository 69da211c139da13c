// tree.h - the element tree built from the tokens. A closed vocabulary of
// 113 elements and 192 attributes; an end tag closes the open element only
// if it names exactly that one. White space is collapsed here, once, so
// that views draw text nodes as they stand. The tree is walked without
// recursion by html_tree_traversal_*.
#pragma once

#include "html/tokenizer.h"

enum : u32 {
    html_tree_construction_error_element_invalid_start_name = 24,
    html_tree_construction_error_element_invalid_end_name = 25,
    html_tree_construction_error_element_unexpected_end = 26,
    html_tree_construction_error_element_end_with_no_open_element = 27,
    html_tree_construction_error_attribute_invalid_name = 28,
    html_tree_construction_error_attribute_not_allowed_in_element = 29,
    html_tree_construction_error_attribute_name_already_present = 30,
    html_tree_construction_error_unclosed_tags = 31,
    html_tree_construction_error_not_enough_memory = 32,
    html_tree_traversal_error_not_enough_memory = 33,
};

// Element identifiers: the place in the element table.
enum : u8 {
    html_element_invalid = 0,
    html_element_html = 1,
    html_element_head = 2,
    html_element_title = 3,
    html_element_base = 4,
    html_element_link = 5,
    html_element_meta = 6,
    html_element_style = 7,
    html_element_body = 8,
    html_element_article = 9,
    html_element_section = 10,
    html_element_nav = 11,
    html_element_aside = 12,
    html_element_h1 = 13,
    html_element_h2 = 14,
    html_element_h3 = 15,
    html_element_h4 = 16,
    html_element_h5 = 17,
    html_element_h6 = 18,
    html_element_header = 19,
    html_element_footer = 20,
    html_element_p = 21,
    html_element_address = 22,
    html_element_hr = 23,
    html_element_pre = 24,
    html_element_blockquote = 25,
    html_element_ol = 26,
    html_element_ul = 27,
    html_element_li = 28,
    html_element_dl = 29,
    html_element_dt = 30,
    html_element_dd = 31,
    html_element_figure = 32,
    html_element_figcaption = 33,
    html_element_main = 34,
    html_element_div = 35,
    html_element_a = 36,
    html_element_em = 37,
    html_element_strong = 38,
    html_element_small = 39,
    html_element_s = 40,
    html_element_cite = 41,
    html_element_q = 42,
    html_element_dfn = 43,
    html_element_abbr = 44,
    html_element_ruby = 45,
    html_element_rb = 46,
    html_element_rt = 47,
    html_element_rtc = 48,
    html_element_rp = 49,
    html_element_data = 50,
    html_element_time = 51,
    html_element_code = 52,
    html_element_var = 53,
    html_element_samp = 54,
    html_element_kbd = 55,
    html_element_sub = 56,
    html_element_sup = 57,
    html_element_i = 58,
    html_element_b = 59,
    html_element_u = 60,
    html_element_mark = 61,
    html_element_bdi = 62,
    html_element_bdo = 63,
    html_element_span = 64,
    html_element_br = 65,
    html_element_wbr = 66,
    html_element_ins = 67,
    html_element_del = 68,
    html_element_picture = 69,
    html_element_source = 70,
    html_element_img = 71,
    html_element_iframe = 72,
    html_element_embed = 73,
    html_element_object = 74,
    html_element_param = 75,
    html_element_video = 76,
    html_element_audio = 77,
    html_element_track = 78,
    html_element_map = 79,
    html_element_area = 80,
    html_element_math = 81,
    html_element_svg = 82,
    html_element_table = 83,
    html_element_caption = 84,
    html_element_colgroup = 85,
    html_element_col = 86,
    html_element_tbody = 87,
    html_element_thead = 88,
    html_element_tfoot = 89,
    html_element_tr = 90,
    html_element_td = 91,
    html_element_th = 92,
    html_element_form = 93,
    html_element_label = 94,
    html_element_input = 95,
    html_element_button = 96,
    html_element_select = 97,
    html_element_datalist = 98,
    html_element_optgroup = 99,
    html_element_option = 100,
    html_element_textarea = 101,
    html_element_output = 102,
    html_element_progress = 103,
    html_element_meter = 104,
    html_element_fieldset = 105,
    html_element_legend = 106,
    html_element_details = 107,
    html_element_summary = 108,
    html_element_dialog = 109,
    html_element_script = 110,
    html_element_noscript = 111,
    html_element_template = 112,
    html_element_canvas = 113,
};
constexpr u32 html_element_count = 114;

// Attribute identifiers: the place in the attribute table. 1 to 77 are the
// global attributes and event handlers, allowed on every element.
enum : u8 {
    html_attr_invalid = 0,
    html_attr_accesskey = 1,
    html_attr_class = 2,
    html_attr_contenteditable = 3,
    html_attr_dir = 4,
    html_attr_draggable = 5,
    html_attr_hidden = 6,
    html_attr_id = 7,
    html_attr_lang = 8,
    html_attr_spellcheck = 9,
    html_attr_style = 10,
    html_attr_tabindex = 11,
    html_attr_title = 12,
    html_attr_translate = 13,
    html_attr_onabort = 14,
    html_attr_onauxclick = 15,
    html_attr_onblur = 16,
    html_attr_oncancel = 17,
    html_attr_oncanplay = 18,
    html_attr_oncanplaythrough = 19,
    html_attr_onchange = 20,
    html_attr_onclick = 21,
    html_attr_onclose = 22,
    html_attr_oncuechange = 23,
    html_attr_ondblclick = 24,
    html_attr_ondrag = 25,
    html_attr_ondragend = 26,
    html_attr_ondragenter = 27,
    html_attr_ondragexit = 28,
    html_attr_ondragleave = 29,
    html_attr_ondragover = 30,
    html_attr_ondragstart = 31,
    html_attr_ondrop = 32,
    html_attr_ondurationchange = 33,
    html_attr_onemptied = 34,
    html_attr_onended = 35,
    html_attr_onerror = 36,
    html_attr_onfocus = 37,
    html_attr_oninput = 38,
    html_attr_oninvalid = 39,
    html_attr_onkeydown = 40,
    html_attr_onkeypress = 41,
    html_attr_onkeyup = 42,
    html_attr_onload = 43,
    html_attr_onloadeddata = 44,
    html_attr_onloadedmetadata = 45,
    html_attr_onloadend = 46,
    html_attr_onloadstart = 47,
    html_attr_onmousedown = 48,
    html_attr_onmouseenter = 49,
    html_attr_onmouseleave = 50,
    html_attr_onmousemove = 51,
    html_attr_onmouseout = 52,
    html_attr_onmouseover = 53,
    html_attr_onmouseup = 54,
    html_attr_onwheel = 55,
    html_attr_onpause = 56,
    html_attr_onplay = 57,
    html_attr_onplaying = 58,
    html_attr_onprogress = 59,
    html_attr_onratechange = 60,
    html_attr_onreset = 61,
    html_attr_onresize = 62,
    html_attr_onscroll = 63,
    html_attr_onseeked = 64,
    html_attr_onseeking = 65,
    html_attr_onselect = 66,
    html_attr_onshow = 67,
    html_attr_onstalled = 68,
    html_attr_onsubmit = 69,
    html_attr_onsuspend = 70,
    html_attr_ontimeupdate = 71,
    html_attr_ontoggle = 72,
    html_attr_onvolumechange = 73,
    html_attr_onwaiting = 74,
    html_attr_oncut = 75,
    html_attr_oncopy = 76,
    html_attr_onpaste = 77,
    html_attr_manifest = 78,
    html_attr_href = 79,
    html_attr_target = 80,
    html_attr_crossorigin = 81,
    html_attr_rel = 82,
    html_attr_rev = 83,
    html_attr_media = 84,
    html_attr_nonce = 85,
    html_attr_hreflang = 86,
    html_attr_type = 87,
    html_attr_referrerpolicy = 88,
    html_attr_sizes = 89,
    html_attr_name = 90,
    html_attr_http_equiv = 91,
    html_attr_content = 92,
    html_attr_charset = 93,
    html_attr_onafterprint = 94,
    html_attr_onbeforeprint = 95,
    html_attr_onbeforeunload = 96,
    html_attr_onhashchange = 97,
    html_attr_onlanguagechange = 98,
    html_attr_onmessage = 99,
    html_attr_onoffline = 100,
    html_attr_ononline = 101,
    html_attr_onpagehide = 102,
    html_attr_onpageshow = 103,
    html_attr_onpopstate = 104,
    html_attr_onrejectionhandled = 105,
    html_attr_onstorage = 106,
    html_attr_onunhandledrejection = 107,
    html_attr_onunload = 108,
    html_attr_cite = 109,
    html_attr_reversed = 110,
    html_attr_start = 111,
    html_attr_value = 112,
    html_attr_download = 113,
    html_attr_datetime = 114,
    html_attr_src = 115,
    html_attr_srcset = 116,
    html_attr_alt = 117,
    html_attr_usemap = 118,
    html_attr_ismap = 119,
    html_attr_width = 120,
    html_attr_height = 121,
    html_attr_longdesc = 122,
    html_attr_srcdoc = 123,
    html_attr_sandbox = 124,
    html_attr_allowfullscreen = 125,
    html_attr_allowpaymentrequest = 126,
    html_attr_data = 127,
    html_attr_typemustmatch = 128,
    html_attr_form = 129,
    html_attr_poster = 130,
    html_attr_preload = 131,
    html_attr_autoplay = 132,
    html_attr_loop = 133,
    html_attr_muted = 134,
    html_attr_controls = 135,
    html_attr_kind = 136,
    html_attr_srclang = 137,
    html_attr_label = 138,
    html_attr_default = 139,
    html_attr_coords = 140,
    html_attr_shape = 141,
    html_attr_border = 142,
    html_attr_span = 143,
    html_attr_rowgroup = 144,
    html_attr_row = 145,
    html_attr_colspan = 146,
    html_attr_rowspan = 147,
    html_attr_headers = 148,
    html_attr_cell = 149,
    html_attr_scope = 150,
    html_attr_abbr = 151,
    html_attr_columnheader = 152,
    html_attr_rowheader = 153,
    html_attr_accept_charset = 154,
    html_attr_action = 155,
    html_attr_autocomplete = 156,
    html_attr_enctype = 157,
    html_attr_method = 158,
    html_attr_novalidate = 159,
    html_attr_for = 160,
    html_attr_accept = 161,
    html_attr_autofocus = 162,
    html_attr_checked = 163,
    html_attr_dirname = 164,
    html_attr_disabled = 165,
    html_attr_formaction = 166,
    html_attr_formenctype = 167,
    html_attr_formmethod = 168,
    html_attr_formnovalidate = 169,
    html_attr_formtarget = 170,
    html_attr_list = 171,
    html_attr_max = 172,
    html_attr_maxlength = 173,
    html_attr_min = 174,
    html_attr_minlength = 175,
    html_attr_multiple = 176,
    html_attr_pattern = 177,
    html_attr_placeholder = 178,
    html_attr_readonly = 179,
    html_attr_required = 180,
    html_attr_size = 181,
    html_attr_step = 182,
    html_attr_selected = 183,
    html_attr_cols = 184,
    html_attr_rows = 185,
    html_attr_wrap = 186,
    html_attr_low = 187,
    html_attr_high = 188,
    html_attr_optimum = 189,
    html_attr_open = 190,
    html_attr_async = 191,
    html_attr_defer = 192,
};
constexpr u32 html_attribute_count = 193;
constexpr u32 html_attribute_global_last = 77;

enum : u8 {
    html_element_inline = 1, // phrasing content
    html_element_void = 2,   // can't have children
};

enum : u8 {
    html_node_kind_element = 1,
    html_node_kind_text = 2,
};

struct html_node_attribute_t {
    data_t value; // reserved == used; both 0 for an attribute without a value
    u8 attribute;
};

struct html_node_t {
    u8 kind;
    u8 attribute_count; // element
    u8 element;         // element: its identifier
    html_node_t *parent; // null for the root only
    union {
        struct {
            html_node_attribute_t *attributes; // element: its run of attribute records
            html_node_t **children;            // element: its children in order
            u16 child_count;
        };
        data_t text; // text node
    };
};
static_assert(sizeof(html_node_t) == 40, "nodes are 40 bytes");
static_assert(sizeof(html_node_attribute_t) == 32, "attribute records are 32 bytes");

struct html_tree_t {
    html_node_t *nodes; // node 0 is the root, element 0, standing for the document
    u64 node_count;
    html_node_attribute_t *attributes;
    u64 attribute_count;
    html_node_t **children;
    data_t node_block;
    data_t text_block;
    data_t attribute_block;
    data_t child_block;
};

struct html_tree_traversal_t {
    u32 *stack; // child indices of the enclosing levels
    u64 depth;
    html_node_t *current; // the element whose children are being walked
    u32 index;            // next child of current
};

// Element and attribute tables.
data_t html_element_name(u32 element);
data_t html_attribute_name(u32 attribute);
// Identifiers by exact name (1 to 113, 1 to 192), or 0.
u32 html_element_find(const u8 *name, u64 size);
u32 html_attribute_find(const u8 *name, u64 size);
bool html_element_allows_attribute(u32 element, u32 attribute);
u8 html_element_has_flag(u32 element, u8 mask);

// Bytes an arena must have free for hp_tree_construction.
u64 hp_tree_size(const html_tokens_t *tokens);
// Builds the tree. `tolerant` (the views pass 1) skips whatever does not fit
// the vocabulary or the nesting and always returns a walkable tree; strict
// mode stops at the first error and still finishes what it has.
html_tree_t hp_tree_construction(data_t *arena, const html_tokens_t *tokens, u32 tolerant, u32 *error);

html_node_t *html_node_child(const html_node_t *node, u32 index);
// True for an element of that identifier, or for any element with 0.
bool html_node_is_element(const html_node_t *node, u32 element);
html_node_attribute_t *html_node_get_attribute(const html_node_t *node, u32 attribute);

// Walk: while (has_next) { node; entering; step }. The root itself is not
// visited. A non-void element is visited entering and leaving; a void
// element and a text node once, entering.
u64 html_tree_traversal_size(u64 node_count);
html_tree_traversal_t html_tree_traversal_create(data_t *arena, html_node_t *root, u64 capacity, u32 *error);
bool html_tree_traversal_has_next(const html_tree_traversal_t *traversal);
bool html_tree_traversal_entering(const html_tree_traversal_t *traversal);
html_node_t *html_tree_traversal_node(const html_tree_traversal_t *traversal);
void html_tree_traversal_step(html_tree_traversal_t *traversal);
