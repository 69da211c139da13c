// paths.cpp - where the program keeps its files.
#include "app/app.h"
#include "app/args.h"
#include "app/engine.h"
#include "os/os_core.h"

void app_paths_init(app_context *app) {
    data_t path = args_value("-path", 5, nullptr);
    app->user_folder = engine_user_folder(app->user_folder_buffer, sizeof(app->user_folder_buffer), &path);
    assert_message(app->user_folder.used != 0, "No per-user data folder, or a -path too long.");
    u64 n = os_desktop_folder((char *)app->desktop_folder_buffer, sizeof(app->desktop_folder_buffer));
    assert_message(n != 0, "No desktop folder.");
    app->desktop_folder = data_t{sizeof(app->desktop_folder_buffer), n, app->desktop_folder_buffer};
}
