# Warnings and sanitizers shared by every target of the project.
add_library(frameloom_options INTERFACE)
target_compile_options(frameloom_options INTERFACE -Wall -Wextra)

# The sanitizer gates build with CMAKE_BUILD_TYPE=Sanitize: optimised enough to run the tests
# quickly, without debug information, which costs most of the build time; frame pointers keep
# the reports' stacks whole.
set(CMAKE_C_FLAGS_SANITIZE "-O1")
set(CMAKE_CXX_FLAGS_SANITIZE "-O1")

if(FRAMELOOM_SANITIZER STREQUAL "address")
  set(_sanitize_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  # Clang 14 cannot emit the function-type check for coroutines ("Cannot represent a difference
  # across sections"); it guards only calls through mistyped function pointers.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    list(APPEND _sanitize_flags -fno-sanitize=function)
  endif()
elseif(FRAMELOOM_SANITIZER STREQUAL "thread")
  set(_sanitize_flags -fsanitize=thread -fno-omit-frame-pointer)
  # GCC warns that ThreadSanitizer does not model the fences inside Asio; the warning says
  # nothing about our code.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-tsan)
  endif()
elseif(NOT FRAMELOOM_SANITIZER STREQUAL "")
  message(FATAL_ERROR "FRAMELOOM_SANITIZER must be empty, 'address' or 'thread'")
endif()
if(_sanitize_flags)
  add_compile_options(${_sanitize_flags})
  add_link_options(${_sanitize_flags})
  # At -O1 under the sanitizers GCC 12 reports maybe-uninitialized members inside libstdc++'s
  # <regex> (UuidTest.cpp); the warning is unreliable with sanitizer instrumentation.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

if(FRAMELOOM_BUILD_FUZZ AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "The fuzz targets need Clang (-DCMAKE_CXX_COMPILER=clang++)")
endif()
