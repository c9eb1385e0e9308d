#pragma once

#include <frameloom/ziploom/DataCallbacks.h>

#include <cstdint>
#include <cstdio>

// Moving an entry's data through a stdio stream in large blocks. Callers hand data around in
// chunks of their buffer size (16 KiB by default); reading and writing the stream in blocks of
// `blockSize` instead saves most of the system calls. The block lives in a buffer the caller
// lends, so that one allocation serves many entries (fresh pages for every entry would cost more
// than the system calls saved). Each object runs on its caller's thread and uses the stream as if
// it were alone on it until it is done.
namespace frameloom::ziploom::stream {

inline constexpr std::size_t blockSize = 256 * 1024;

// Serves the next `limit` bytes of `file` in chunks of any size, reading ahead a block at a time.
// The stream's position ends up after the last block read, not after the last chunk served.
class ReadAhead {
public:
  ReadAhead(std::FILE* file, std::uint64_t limit, Bytes& block);
  // Up to `count` bytes: fewer at the limit or at the end of the stream. Throws
  // DataError::unreadableFile when the stream reports an error.
  Bytes read(std::size_t count);

private:
  std::FILE* file_;
  std::uint64_t unread_;
  Bytes& block_;
  std::size_t offset_ = 0;
};

// Collects what is written and passes it to `file` a block at a time. Until the first block is
// passed on, what was written can still be changed in place, so a header written before its
// data can be completed without seeking back. Throws DataError::unwritableFile.
class WriteBehind {
public:
  WriteBehind(std::FILE* file, Bytes& block);
  void write(ByteView bytes);
  // Replaces bytes at `offset` from the first byte written; false when they have left already.
  bool overwrite(std::size_t offset, ByteView bytes);
  // Passes everything collected to the stream (not flushing the stream itself).
  void flush();

private:
  std::FILE* file_;
  Bytes& pending_;
  bool passedOn_ = false;
};

} // namespace frameloom::ziploom::stream
