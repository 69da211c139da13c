# The HTTP layer: blocking GET over libcurl (tw_os_net).
find_package(PkgConfig REQUIRED)
pkg_check_modules(TW_CURL REQUIRED IMPORTED_TARGET libcurl)

add_library(tw_os_net STATIC ${CMAKE_CURRENT_LIST_DIR}/linux/os_http_curl.cpp)
tidewrack_product(tw_os_net)
target_link_libraries(tw_os_net PUBLIC tw_os_core PRIVATE PkgConfig::TW_CURL)
