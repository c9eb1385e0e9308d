#pragma once

#include <frameloom/ziploom/AccessMode.h>
#include <frameloom/ziploom/DataCallbacks.h>

#include <cstdint>
#include <cstdio>
#include <frameloom/platform/ZiploomExport.h>
#include <memory>
#include <span>

namespace frameloom::ziploom {

// A growable byte buffer with a current position, presented to the archive code as a stdio
// stream so that every archive operation works unchanged in memory. Each open stream holds a
// reference to the file until it is closed. Not thread-safe: one archive, one thread.
class FRAMELOOM_ZIPLOOM_EXPORT MemoryFile : public std::enable_shared_from_this<MemoryFile> {
public:
  static std::shared_ptr<MemoryFile> make(Bytes data = {});
  explicit MemoryFile(Bytes data);

  // A stream over this file; writable unless `mode` is `read`. The caller closes it with fclose.
  // Throws MemoryFileError when the C library cannot create the stream.
  std::FILE* openStream(AccessMode mode);

  // Copies up to buffer.size() bytes from the position on and advances past them. Nothing is
  // read when the position lies outside the data.
  std::size_t readBytes(std::span<std::uint8_t> buffer);
  // Writes at the position, overwriting what is there, growing the data (gaps become zeros)
  // and, when the write runs past the end, dropping the old tail first. Nothing is written at a
  // negative position.
  std::size_t writeBytes(std::span<const std::uint8_t> bytes);
  // Moves the position (SEEK_SET, SEEK_CUR or SEEK_END) and returns it. A negative position is
  // stored as it is; an unknown whence or an overflow sets it to -1. The stream's seek callback
  // reports a negative position as a failed seek.
  std::int64_t seek(std::int64_t offset, int whence);
  // Drops the bytes from `length` on; the position stays where it was. Flush the stream first.
  void truncate(std::size_t length);

  const Bytes& data() const { return data_; }
  std::int64_t offset() const { return offset_; }

private:
  Bytes data_;
  std::int64_t offset_ = 0;
};

} // namespace frameloom::ziploom
