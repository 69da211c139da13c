// tidewrack-tool - the program's engine without a window: fetching and
// parsing feeds into the reader files, the feed list file, and dumps of the
// reader, of HTML documents and of decoded text for looking at them.
//
//   update [-path DIR] [-log] [URL...]  fetch the given addresses, or every feed
//   import [-path DIR] [-log] FILE    fetch every address of a list or OPML file
//   export [-path DIR] FILE           write the feed list (OPML when FILE ends in .opml)
//   parse  [-path DIR] [--url URL] FILE   read a local document as if fetched
//   dump   [-path DIR | FILE.bin]     the newest snapshot (or a file) as JSON
//   html   [--strict] FILE            tokens and tree of an HTML document as JSON
//   discover [--url PAGE_URL] FILE | URL   the feed addresses a page names (discover.cpp)
//   decode LABEL FILE                 FILE's bytes in that encoding, as UTF-8
//
// The fetching commands run the same road as the program: the feed query
// slots, the workers, the scan, then the shut-down order (workers stopped,
// deleted records purged, audit, save). With "-log" they write the main log
// to log.txt in the current directory at the end, as the program does.
//
// This file reads the command line and hands it to the command; the parts
// are in output.cpp (JSON), commands.cpp (the engine's commands),
// dump_reader.cpp and dump_html.cpp.
#include "tools/tool/tool.h"

#include "base/text.h"

// One line a command: its name, its function and the options it takes.
struct tool_command_t {
    const char *name;
    int (*run)(const tool_args_t *args);
    u32 options;
};

static const tool_command_t tool_commands[] = {
    {"update", tool_update, tool_option_path},
    {"import", tool_import, tool_option_path},
    {"export", tool_export, tool_option_path},
    {"parse", tool_parse, tool_option_path | tool_option_url},
    {"dump", tool_dump, tool_option_path},
    {"html", tool_html, tool_option_strict},
    {"discover", tool_discover, tool_option_url},
    {"decode", tool_decode, 0},
};

static tool_args_t tool_parse_args(int argc, char **argv, u32 options) {
    tool_args_t args = {};
    // Items are moved down over the options already read, so any number of
    // them fits without a list of the tool's own.
    args.items = argv + 2;
    for (int i = 2; i < argc; i++) {
        const char *a = argv[i];
        data_t value = data_from_pointer(a, string_length(a));
        if ((options & tool_option_path) && text_is(&value, "-path")) {
            if (i + 1 >= argc) args.bad = true;
            else args.path = data_from_pointer(argv[i + 1], string_length(argv[i + 1])), i++;
        } else if ((options & tool_option_url) && text_is(&value, "--url")) {
            if (i + 1 >= argc) args.bad = true;
            else args.url = data_from_pointer(argv[i + 1], string_length(argv[i + 1])), i++;
        } else if ((options & tool_option_path) && text_is(&value, "-log")) {
            args.log = true;
        } else if ((options & tool_option_strict) && text_is(&value, "--strict")) {
            args.strict = true;
        } else if (a[0] == '-' && a[1] != 0) {
            args.bad = true;
        } else {
            args.items[args.item_count++] = argv[i];
        }
    }
    return args;
}

int tool_usage() {
    print_error("usage:\n"
                "  tidewrack-tool update [-path DIR] [-log] [URL...]\n"
                "  tidewrack-tool import [-path DIR] [-log] FILE\n"
                "  tidewrack-tool export [-path DIR] FILE\n"
                "  tidewrack-tool parse [-path DIR] [-log] [--url URL] FILE\n"
                "  tidewrack-tool dump [-path DIR | FILE.bin]\n"
                "  tidewrack-tool html [--strict] FILE\n"
                "  tidewrack-tool discover [--url PAGE_URL] FILE | URL\n"
                "  tidewrack-tool decode LABEL FILE\n");
    return 2;
}

data_t tool_item(const tool_args_t *args, u32 index) {
    return data_from_pointer(args->items[index], string_length(args->items[index]));
}

int main(int argc, char **argv) {
    if (argc < 2) return tool_usage();
    system_info_get();
    data_t name = data_from_pointer(argv[1], string_length(argv[1]));
    const tool_command_t *command = nullptr;
    for (const tool_command_t &c : tool_commands)
        if (text_is(&name, c.name)) command = &c;
    if (!command) return tool_usage();
    tool_args_t args = tool_parse_args(argc, argv, command->options);
    if (args.bad) return tool_usage();
    int status = command->run(&args);
    if (!out_finish()) {
        print_error("tidewrack-tool: can't write to stdout\n");
        return 1;
    }
    return status;
}
