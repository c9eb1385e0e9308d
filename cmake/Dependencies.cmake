# Every dependency is a Debian package; scripts/dependencies.sh installs them.
find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
find_package(PNG REQUIRED)
find_package(CURL REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(CLI11 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(RLOTTIE REQUIRED IMPORTED_TARGET rlottie)
pkg_check_modules(WEBP REQUIRED IMPORTED_TARGET libwebp)
pkg_check_modules(FREETYPE REQUIRED IMPORTED_TARGET freetype2)
pkg_check_modules(HARFBUZZ REQUIRED IMPORTED_TARGET harfbuzz)
pkg_check_modules(FONTCONFIG REQUIRED IMPORTED_TARGET fontconfig)

# Standalone Asio is header-only.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(asio INTERFACE)
target_include_directories(asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
# Asio detects aligned_alloc only when a standard header came first; deciding it once for every
# translation unit keeps its allocation and release functions in agreement.
target_compile_definitions(asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_STD_ALIGNED_ALLOC)
target_link_libraries(asio INTERFACE Threads::Threads)
# Asio looks for Clang's coroutines only with libc++; with libstdc++'s <coroutine> it has to be
# told that they are there.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_definitions(asio INTERFACE ASIO_HAS_CO_AWAIT=1 ASIO_HAS_STD_COROUTINE=1)
endif()

if(FRAMELOOM_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(FRAMELOOM_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
