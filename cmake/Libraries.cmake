# The two installed libraries. Ziploom (with the platform's core below it) stands alone; frameloom
# holds the rest of the platform, the renderer and the subsystems. Each layer's folder adds its
# sources to one of them. Shared builds export only what the public headers mark with the macros
# of <frameloom/platform/ZiploomExport.h> and <frameloom/platform/Export.h>.
include(GenerateExportHeader)
include(GNUInstallDirs)

set(FRAMELOOM_GENERATED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)

function(frameloom_add_library target export_name)
  add_library(${target})
  add_library(Frameloom::${export_name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${export_name}
    OUTPUT_NAME ${export_name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    POSITION_INDEPENDENT_CODE ON
    # An installed libframeloom finds the libziploom installed beside it.
    INSTALL_RPATH "$ORIGIN"
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
           $<BUILD_INTERFACE:${FRAMELOOM_GENERATED_INCLUDE_DIR}>
           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
  # Warnings apply to Frameloom's own files only, never to a host's.
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:frameloom_options>)
endfunction()

frameloom_add_library(frameloom_ziploom ziploom)
generate_export_header(frameloom_ziploom BASE_NAME FRAMELOOM_ZIPLOOM
  EXPORT_FILE_NAME ${FRAMELOOM_GENERATED_INCLUDE_DIR}/frameloom/platform/ZiploomExport.h)
target_link_libraries(frameloom_ziploom PRIVATE ZLIB::ZLIB PkgConfig::FRAMELOOM_UTF8PROC
  PkgConfig::FRAMELOOM_DEFLATE Threads::Threads)

frameloom_add_library(frameloom frameloom)
generate_export_header(frameloom BASE_NAME FRAMELOOM
  EXPORT_FILE_NAME ${FRAMELOOM_GENERATED_INCLUDE_DIR}/frameloom/platform/Export.h)
target_link_libraries(frameloom
  PUBLIC frameloom_ziploom Frameloom::asio CURL::libcurl
  PRIVATE PNG::PNG PkgConfig::FRAMELOOM_WEBP PkgConfig::FRAMELOOM_UUID PkgConfig::FRAMELOOM_RLOTTIE
          PkgConfig::FRAMELOOM_PCRE2 PkgConfig::FRAMELOOM_UTF8PROC PkgConfig::FRAMELOOM_FREETYPE
          PkgConfig::FRAMELOOM_HARFBUZZ PkgConfig::FRAMELOOM_FONTCONFIG nlohmann_json::nlohmann_json
          PkgConfig::FRAMELOOM_WEBPMUX PkgConfig::FRAMELOOM_GIF ZLIB::ZLIB)

configure_file(${CMAKE_CURRENT_LIST_DIR}/Version.h.in
  ${FRAMELOOM_GENERATED_INCLUDE_DIR}/frameloom/Version.h @ONLY)
