#include <frameloom/platform/system/LibraryVersions.h>

#include <curl/curl.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gif_lib.h>
#include <harfbuzz/hb.h>
#include <png.h>
#include <webp/encode.h>
#include <webp/mux.h>
#include <zlib.h>

namespace frameloom::platform {

namespace {

// libwebp packs its versions as 0xMMmmpp.
std::string webpVersion(int packed) {
  return std::to_string((packed >> 16) & 0xff) + "." + std::to_string((packed >> 8) & 0xff) + "." +
         std::to_string(packed & 0xff);
}

} // namespace

std::vector<std::pair<std::string, std::string>> libraryVersions() {
  return {
      {"zlib", zlibVersion()},
      {"libcurl", curl_version_info(CURLVERSION_NOW)->version},
      {"libpng", png_get_libpng_ver(nullptr)},
      {"libwebp", webpVersion(WebPGetEncoderVersion())},
      {"libwebpmux", webpVersion(WebPGetMuxVersion())},
      {"giflib", std::to_string(GIFLIB_MAJOR) + "." + std::to_string(GIFLIB_MINOR) + "." +
                     std::to_string(GIFLIB_RELEASE)},
      {"rlottie", FRAMELOOM_RLOTTIE_VERSION},
      {"FreeType", std::to_string(FREETYPE_MAJOR) + "." + std::to_string(FREETYPE_MINOR) + "." +
                       std::to_string(FREETYPE_PATCH)},
      {"HarfBuzz", hb_version_string()},
  };
}

} // namespace frameloom::platform
