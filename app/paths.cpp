// paths.cpp - where the program keeps its files.
#include "app/app.h"
#include "app/args.h"
#include "os/os_core.h"

void app_paths_init(app_context *app) {
    data_t path = args_value("-path", 5, nullptr);
    if (path.bytes && path.used < sizeof(app->user_folder_buffer)) {
        memory_copy(app->user_folder_buffer, path.bytes, path.used);
        app->user_folder = data_t{sizeof(app->user_folder_buffer), path.used, app->user_folder_buffer};
    } else {
        u64 n = os_user_data_folder((char *)app->user_folder_buffer, sizeof(app->user_folder_buffer));
        assert_message(n != 0, "No per-user data folder.");
        os_user_data_parent_create();
        app->user_folder = data_t{sizeof(app->user_folder_buffer), n, app->user_folder_buffer};
    }
    u64 n = os_desktop_folder((char *)app->desktop_folder_buffer, sizeof(app->desktop_folder_buffer));
    assert_message(n != 0, "No desktop folder.");
    app->desktop_folder = data_t{sizeof(app->desktop_folder_buffer), n, app->desktop_folder_buffer};
}
