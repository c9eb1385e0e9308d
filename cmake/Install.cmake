# Installs the libraries, the public headers (with the generated export and version headers), the
# CMake package Frameloom (targets Frameloom::frameloom and Frameloom::ziploom), frameloom.pc for
# pkg-config and, when built, the tool; `cpack -G DEB` packs the same files.
include(CMakePackageConfigHelpers)

set(FRAMELOOM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Frameloom)

install(TARGETS frameloom_ziploom frameloom EXPORT FrameloomTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${FRAMELOOM_GENERATED_INCLUDE_DIR}/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT FrameloomTargets NAMESPACE Frameloom:: DESTINATION ${FRAMELOOM_CMAKE_DIR})

# A static library brings its private dependencies into the host's link; a shared one does not,
# and pkg-config would insist on finding their development files even for a shared link.
if(BUILD_SHARED_LIBS)
  set(FRAMELOOM_STATIC_DEPENDENCIES OFF)
  set(FRAMELOOM_PC_REQUIRES_PRIVATE "")
  set(FRAMELOOM_PC_LIBS_PRIVATE "")
else()
  set(FRAMELOOM_STATIC_DEPENDENCIES ON)
  set(FRAMELOOM_PC_REQUIRES_PRIVATE
      "zlib libpng libwebp uuid rlottie libpcre2-8 libutf8proc freetype2 harfbuzz fontconfig libwebpmux libgif libdeflate")
  set(FRAMELOOM_PC_LIBS_PRIVATE "-lstdc++ -lpthread")
endif()
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/FrameloomConfig.cmake.in
  ${PROJECT_BINARY_DIR}/FrameloomConfig.cmake INSTALL_DESTINATION ${FRAMELOOM_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FrameloomConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/FrameloomConfig.cmake
              ${PROJECT_BINARY_DIR}/FrameloomConfigVersion.cmake
              ${CMAKE_CURRENT_LIST_DIR}/FrameloomAsio.cmake
  DESTINATION ${FRAMELOOM_CMAKE_DIR})

# pkg-config needs the compile definitions the public headers expect from Asio. libcurl is named
# as a library, not required as a module: hosts link it shared even when Frameloom is static, and
# `pkg-config --static` would otherwise ask for every static library behind it. The prefix is
# found from the file's own place, so that a package installed under another prefix still works.
file(RELATIVE_PATH FRAMELOOM_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/frameloom.pc.in ${PROJECT_BINARY_DIR}/frameloom.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/frameloom.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/frameloom)

if(FRAMELOOM_BUILD_TOOL)
  install(TARGETS frameloom_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  if(FRAMELOOM_HELP2MAN)
    install(FILES ${PROJECT_BINARY_DIR}/tools/frameloom/frameloom.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
  install(FILES ${PROJECT_SOURCE_DIR}/tools/frameloom/frameloom-completion.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME frameloom)
endif()

set(CPACK_PACKAGE_NAME frameloom-dev)
set(CPACK_PACKAGE_VENDOR "Frameloom")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "dotLottie animations for C++ hosts: load, recolour, render, play")
set(CPACK_PACKAGE_CONTACT "Frameloom developers <frameloom@localhost>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
# The packages whose headers and libraries the installed package files look for: the public
# headers' Asio and libcurl, and for static libraries the development files of everything they
# link. Shared libraries depend on the run-time libraries they were linked with instead, which
# dpkg-shlibdeps reads from them.
if(BUILD_SHARED_LIBS)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libasio-dev, libcurl4-openssl-dev")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS
      "libasio-dev, libcurl4-openssl-dev, zlib1g-dev, libpng-dev, libwebp-dev, uuid-dev, librlottie-dev, libpcre2-dev, libutf8proc-dev, nlohmann-json3-dev, libfreetype-dev, libharfbuzz-dev, libfontconfig-dev, libgif-dev, libdeflate-dev, pkg-config")
endif()
include(CPack)
