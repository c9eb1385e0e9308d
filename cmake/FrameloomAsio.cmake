# Standalone Asio, header-only, as the imported target Frameloom::asio. Frameloom's public headers
# use it, so the build and every host compile it with the same settings; the installed package
# file includes this file too.
if(NOT TARGET Frameloom::asio)
  find_path(FRAMELOOM_ASIO_INCLUDE_DIR asio.hpp REQUIRED)
  add_library(Frameloom::asio INTERFACE IMPORTED GLOBAL)
  target_include_directories(Frameloom::asio SYSTEM INTERFACE ${FRAMELOOM_ASIO_INCLUDE_DIR})
  # Asio detects aligned_alloc only when a standard header came first; deciding it once for every
  # translation unit keeps its allocation and release functions in agreement.
  target_compile_definitions(Frameloom::asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED
                                                       ASIO_DISABLE_STD_ALIGNED_ALLOC)
  target_link_libraries(Frameloom::asio INTERFACE Threads::Threads)
  # Asio looks for Clang's coroutines only with libc++; with libstdc++'s <coroutine> it has to be
  # told that they are there.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_definitions(Frameloom::asio INTERFACE ASIO_HAS_CO_AWAIT=1 ASIO_HAS_STD_COROUTINE=1)
  endif()
endif()
