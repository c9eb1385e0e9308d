#include <frameloom/platform/system/Url.h>

#include <curl/curl.h>

#include <algorithm>
#include <memory>

namespace frameloom::platform {
namespace {

struct CurlUrlDeleter {
  void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using CurlUrl = std::unique_ptr<CURLU, CurlUrlDeleter>;

struct CurlStringDeleter {
  void operator()(char* text) const { curl_free(text); }
};
using CurlString = std::unique_ptr<char, CurlStringDeleter>;

bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
  return c >= '0' && c <= '9';
}

// Length of the scheme at the start of `text` (letter, then letters, digits, "+", "-", "."),
// followed by a colon; 0 when there is none.
std::size_t schemeLength(std::string_view text) {
  if (text.empty() || !isAsciiLetter(text[0])) {
    return 0;
  }
  std::size_t i = 1;
  while (i < text.size() && (isAsciiLetter(text[i]) || isAsciiDigit(text[i]) || text[i] == '+' ||
                             text[i] == '-' || text[i] == '.')) {
    ++i;
  }
  return i < text.size() && text[i] == ':' ? i : 0;
}

bool isPrintableWithoutSpaces(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

// libcurl's parse of `text`; null when libcurl refuses it. The path is kept as written.
CurlUrl parseWithCurl(const std::string& text) {
  CurlUrl handle(curl_url());
  if (!handle || curl_url_set(handle.get(), CURLUPART_URL, text.c_str(),
                              CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS) != CURLUE_OK) {
    return nullptr;
  }
  return handle;
}

// Whether the text after the scheme has an authority that libcurl must accept: "//" and then
// something, or any file URL. Opaque URLs ("mailto:a@b") and empty authorities ("memory://")
// are only checked for their characters.
bool needsFullParse(std::string_view text, std::size_t schemeEnd, bool isFile) {
  std::string_view rest = text.substr(schemeEnd + 1);
  return isFile || (rest.size() > 2 && rest.substr(0, 2) == "//");
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return (x | 0x20) == (y | 0x20);
         });
}

bool isPathByteKept(unsigned char c) {
  static constexpr std::string_view kept = "-._~!$&'()*+,;=:@/";
  return isAsciiLetter(static_cast<char>(c)) || isAsciiDigit(static_cast<char>(c)) ||
         kept.find(static_cast<char>(c)) != std::string_view::npos;
}

} // namespace

std::optional<Url> Url::parse(std::string_view text) {
  std::size_t schemeEnd = schemeLength(text);
  if (schemeEnd == 0 || !isPrintableWithoutSpaces(text)) {
    return std::nullopt;
  }
  std::string owned(text);
  bool isFile = equalsIgnoringCase(text.substr(0, schemeEnd), "file");
  if (needsFullParse(text, schemeEnd, isFile) && !parseWithCurl(owned)) {
    return std::nullopt;
  }
  return Url(std::move(owned));
}

Url Url::fromFilePath(const std::filesystem::path& path) {
  static constexpr char hex[] = "0123456789ABCDEF";
  const std::string absolute = std::filesystem::absolute(path).native();
  std::string text = "file://";
  for (unsigned char c : absolute) {
    if (isPathByteKept(c)) {
      text += static_cast<char>(c);
    } else {
      text += '%';
      text += hex[c >> 4];
      text += hex[c & 0xf];
    }
  }
  return Url(std::move(text));
}

Url Url::memory() {
  return Url("memory://");
}

std::string_view Url::scheme() const {
  return std::string_view(text_).substr(0, schemeLength(text_));
}

bool Url::isHttp(std::string_view text) {
  return text.starts_with("http://") || text.starts_with("https://");
}

bool Url::isFileUrl() const {
  return equalsIgnoringCase(scheme(), "file");
}

std::filesystem::path Url::path() const {
  if (!needsFullParse(text_, scheme().size(), isFileUrl())) {
    return {};
  }
  CurlUrl handle = parseWithCurl(text_);
  char* raw = nullptr;
  if (!handle || curl_url_get(handle.get(), CURLUPART_PATH, &raw, CURLU_URLDECODE) != CURLUE_OK) {
    return {};
  }
  CurlString decoded(raw);
  return std::filesystem::path(decoded.get());
}

} // namespace frameloom::platform
