// discover.cpp - `tidewrack-tool discover`: the feed addresses an HTML page
// names, one a line, in document order.
//
//   discover [--url PAGE_URL] FILE   a saved page (addresses resolved against PAGE_URL)
//   discover URL                     the page fetched first
#include "tools/tool/tool.h"

#include "base/files.h"
#include "base/text.h"
#include "html/tokenizer.h"
#include "net/feed_discovery.h"
#include "net/http.h"
#include "os/os_core.h"

#include <stdio.h>
#include <string.h>

static void discover_error(const char *a, const char *b = "") {
    fprintf(stderr, "tidewrack-tool: %s%s\n", a, b);
}

// The page at `url`, fetched into `block` (the 5 MB limit). False on failure.
static bool discover_fetch(const char *url, data_t *block) {
    u32 error = 0;
    http_init("tidewrack", &error);
    data_t address = data_from_pointer(url, strlen(url));
    http_file_t file = http_file_open(&address, nullptr, &error);
    *block = error ? data_t{} : data_virtual_alloc(http_default_size, 0);
    file.content = data_t{block->reserved, 0, block->bytes};
    http_file_get(&file, &error);
    http_file_abandon(&file);
    block->used = file.content.used;
    if (!error) return true;
    if (error == http_error_status) fprintf(stderr, "tidewrack-tool: %s: HTTP %u %s\n", url, file.status,
                                            http_status_text(file.status));
    else fprintf(stderr, "tidewrack-tool: %s: %s\n", url, http_error_name(error));
    return false;
}

int tool_discover(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    const char *page_url = args->url.used ? (const char *)args->url.bytes : nullptr;
    const char *item = args->items[0];
    bool fetch = !page_url && (!strncmp(item, "http://", 7) || !strncmp(item, "https://", 8));
    data_t page = {};
    if (fetch) {
        if (!discover_fetch(item, &page)) return 1;
        page_url = item;
    } else {
        u32 error = 0;
        data_t path = data_from_pointer(item, strlen(item));
        file_read_all(&page, &path, false, &error);
        if (error) {
            discover_error("can't read ", item);
            return 1;
        }
    }
    // Without an address, relative links stay unresolved and are left out.
    if (!page_url) page_url = "";
    data_t memory = data_virtual_alloc(hp_tokenizer_size(&page) + 0x100000 +
                                           feed_discovery_capacity * http_url_capacity * 2, 0);
    data_t base = data_from_pointer(page_url, strlen(page_url));
    feed_discovery_t found = feed_discovery_find(&memory, &page, &base);
    for (u64 i = 0; i < found.count; i++) {
        fwrite(found.links[i].bytes, 1, found.links[i].used, stdout);
        fputc('\n', stdout);
    }
    if (found.found > found.count) fprintf(stderr, "tidewrack-tool: %llu more feed links not shown\n",
                                           (unsigned long long)(found.found - found.count));
    return 0;
}
