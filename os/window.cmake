# The window layer: SDL2 for the program, and a headless
# twin for tests and tools that need no display.
find_package(PkgConfig REQUIRED)
pkg_check_modules(TW_SDL2 REQUIRED IMPORTED_TARGET sdl2)
pkg_check_modules(TW_FONTCONFIG REQUIRED IMPORTED_TARGET fontconfig)
pkg_check_modules(TW_FREETYPE REQUIRED IMPORTED_TARGET GLOBAL freetype2)
pkg_check_modules(TW_HARFBUZZ REQUIRED IMPORTED_TARGET GLOBAL harfbuzz)
pkg_check_modules(TW_FRIBIDI REQUIRED IMPORTED_TARGET GLOBAL fribidi)
pkg_check_modules(TW_LIBTHAI REQUIRED IMPORTED_TARGET GLOBAL libthai)

add_library(tw_os_window_sdl STATIC ${CMAKE_CURRENT_LIST_DIR}/linux/os_window_sdl.cpp)
tidewrack_product(tw_os_window_sdl)
target_link_libraries(tw_os_window_sdl PUBLIC PkgConfig::TW_SDL2)

# Font files through fontconfig, for the program, its tests and tools alike.
add_library(tw_os_fonts STATIC ${CMAKE_CURRENT_LIST_DIR}/linux/os_fonts_fontconfig.cpp)
tidewrack_product(tw_os_fonts)
target_link_libraries(tw_os_fonts PUBLIC PkgConfig::TW_FONTCONFIG)

add_library(tw_os_window_headless STATIC ${CMAKE_CURRENT_LIST_DIR}/headless/os_window_headless.cpp)
tidewrack_product(tw_os_window_headless)
