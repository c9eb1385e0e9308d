#pragma once

#include <frameloom/platform/ZiploomExport.h>
#include <frameloom/platform/core/Progress.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Text.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

// Whole-item conveniences on top of Archive: zipping a file or folder tree into a new archive,
// unzipping an archive into a folder, and the containment test that keeps every unzipped item
// inside its destination. They run on the caller's thread; a progress record, when given, is set
// up as a tree with one child per item and can cancel the work between chunks.
//
// Errors: FileError (missing source, existing destination, an entry that would land outside the
// destination), ArchiveError (invalidCRC32, cancelledOperation, ...), and the errors of Archive.
namespace frameloom::ziploom {

using ProgressPointer = std::shared_ptr<frameloom::platform::Progress>;

// True when `url`, with "." and ".." steps resolved (lexically, against the current folder for
// relative paths), lies below `folder`. A sibling whose name merely begins with the folder's name
// is not contained.
FRAMELOOM_ZIPLOOM_EXPORT bool isContained(const std::filesystem::path& url,
                                          const std::filesystem::path& folder);

// `folder` with an entry path appended as path components. Leading "/" are dropped, so an
// absolute entry path lands below `folder` instead of replacing it; ".." steps are kept for
// isContained to judge.
FRAMELOOM_ZIPLOOM_EXPORT std::filesystem::path
appendingPathComponent(const std::filesystem::path& folder, std::string_view entryPath);

// Zips `source` into a new archive at `destination`, which must not exist. A file becomes one
// entry under its own name; a folder's contents are added depth first in name order, below a
// top-level entry named for the folder when `shouldKeepParent`. On failure the archive keeps
// the entries added before it. Files are deflated at `compressionLevel` (Compression.h).
FRAMELOOM_ZIPLOOM_EXPORT void zipItem(const std::filesystem::path& source,
                                      const std::filesystem::path& destination,
                                      bool shouldKeepParent = false,
                                      CompressionMethod compressionMethod = CompressionMethod::none,
                                      const ProgressPointer& progress = nullptr,
                                      int compressionLevel = defaultCompressionLevel);

// Unzips every entry of the archive at `source` below `destination` (created with the first
// item, so an empty archive creates nothing). An entry path is appended as a path component: an
// absolute one lands inside the destination.
// Refuses, before writing anything of it, an entry whose path climbs out of the destination or
// leads through a symbolic link that points outside; links whose own target lies outside are
// refused unless `allowUncontainedSymlinks`. Unless `skipCRC32`, each item's checksum is
// compared with its entry's. Items unzipped before a failure stay. An archive whose entries
// share data (ArchiveError::invalidLocalHeaderDataOffset), or whose entries declare more than
// `maximumExtractedSize` bytes in all (FileError::fileReadTooLarge), is refused before anything
// is written.
FRAMELOOM_ZIPLOOM_EXPORT void
unzipItem(const std::filesystem::path& source, const std::filesystem::path& destination,
          bool skipCRC32 = false, bool allowUncontainedSymlinks = false,
          const ProgressPointer& progress = nullptr,
          std::optional<TextEncoding> pathEncoding = std::nullopt,
          std::uint64_t maximumExtractedSize = std::numeric_limits<std::uint64_t>::max());
// The same without links pointing outside.
FRAMELOOM_ZIPLOOM_EXPORT void
unzipItem(const std::filesystem::path& source, const std::filesystem::path& destination,
          bool skipCRC32, const ProgressPointer& progress,
          std::optional<TextEncoding> preferredEncoding = std::nullopt);

} // namespace frameloom::ziploom
