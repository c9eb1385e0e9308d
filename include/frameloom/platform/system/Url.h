#pragma once

#include <filesystem>
#include <frameloom/platform/Export.h>
#include <optional>
#include <string>
#include <string_view>

namespace frameloom::platform {

// An absolute URL: the text exactly as given ("https://host/a.lottie?x#y"), a file URL made from
// a path ("file:///tmp/a%20b.lottie"), or "memory://" for in-memory archives. The text is kept
// unchanged, so two Urls are equal exactly when their texts are; the parts are read with
// libcurl's parser. Plain value; safe to use from any thread; nothing here throws except
// std::bad_alloc.
class FRAMELOOM_EXPORT Url {
public:
  // The URL for `text` when it is an absolute URL ("scheme:" followed by printable ASCII without
  // spaces; URLs with an authority, "scheme://host...", must also be well formed), else none.
  static std::optional<Url> parse(std::string_view text);

  // The file URL of `path`, made absolute against the working directory (".." is kept). Bytes
  // other than letters, digits and -._~!$&'()*+,;=:@/ are percent-encoded.
  static Url fromFilePath(const std::filesystem::path& path);

  // "memory://", the URL a memory-backed archive reports.
  static Url memory();

  // The full text, scheme, query and fragment included.
  const std::string& absoluteString() const { return text_; }

  // The scheme as written, without the colon ("https", "file", "memory").
  std::string_view scheme() const;

  // Whether the scheme is "file" (in any letter case).
  bool isFileUrl() const;

  // Whether the text begins with "http://" or "https://", exactly (letter case included): the
  // test for what is fetched through the network.
  bool isHttp() const { return isHttp(text_); }
  static bool isHttp(std::string_view text);

  // The percent-decoded path component: for a file URL, the file's path; empty when the URL
  // has none.
  std::filesystem::path path() const;

  // The text printed for this URL in diagnostics: the absolute string.
  const std::string& description() const { return text_; }

  friend bool operator==(const Url&, const Url&) = default;

private:
  explicit Url(std::string text) : text_(std::move(text)) {}

  std::string text_;
};

} // namespace frameloom::platform
