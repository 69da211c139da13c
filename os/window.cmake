# The window layer: SDL2 with fontconfig for the program, and a headless
# twin for tests and tools that need no display.
find_package(PkgConfig REQUIRED)
pkg_check_modules(TW_SDL2 REQUIRED IMPORTED_TARGET sdl2)
pkg_check_modules(TW_FONTCONFIG REQUIRED IMPORTED_TARGET fontconfig)

add_library(tw_os_window_sdl STATIC ${CMAKE_CURRENT_LIST_DIR}/linux/os_window_sdl.cpp)
tidewrack_product(tw_os_window_sdl)
target_link_libraries(tw_os_window_sdl PUBLIC PkgConfig::TW_SDL2 PkgConfig::TW_FONTCONFIG)

add_library(tw_os_window_headless STATIC ${CMAKE_CURRENT_LIST_DIR}/headless/os_window_headless.cpp)
tidewrack_product(tw_os_window_headless)
