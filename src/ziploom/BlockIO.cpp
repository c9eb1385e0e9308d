#include "ziploom/BlockIO.h"

#include <frameloom/ziploom/Errors.h>

#include <algorithm>
#include <cstring>

namespace frameloom::ziploom::stream {

ReadAhead::ReadAhead(std::FILE* file, std::uint64_t limit, Bytes& block)
    : file_(file), unread_(limit), block_(block) {
  block_.clear();
}

Bytes ReadAhead::read(std::size_t count) {
  Bytes chunk;
  while (chunk.size() < count) {
    if (offset_ == block_.size()) {
      if (unread_ == 0) {
        break;
      }
      // A block never exceeds what is left, so a size read from a damaged archive cannot make
      // this allocate more than one block.
      block_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(blockSize, unread_)));
      const auto read = std::fread(block_.data(), 1, block_.size(), file_);
      if (std::ferror(file_)) {
        throw DataError(DataError::Code::unreadableFile);
      }
      block_.resize(read);
      offset_ = 0;
      // The stream ended early: nothing more will come.
      unread_ = read == 0 ? 0 : unread_ - read;
    }
    const auto take = std::min(count - chunk.size(), block_.size() - offset_);
    chunk.insert(chunk.end(), block_.begin() + static_cast<std::ptrdiff_t>(offset_),
                 block_.begin() + static_cast<std::ptrdiff_t>(offset_ + take));
    offset_ += take;
  }
  return chunk;
}

WriteBehind::WriteBehind(std::FILE* file, Bytes& block) : file_(file), pending_(block) {
  pending_.clear();
  pending_.reserve(blockSize);
}

void WriteBehind::write(ByteView bytes) {
  if (pending_.size() + bytes.size() > blockSize) {
    flush();
  }
  if (bytes.size() >= blockSize) {
    passedOn_ = true;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size() || std::ferror(file_)) {
      throw DataError(DataError::Code::unwritableFile);
    }
    return;
  }
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
}

bool WriteBehind::overwrite(std::size_t offset, ByteView bytes) {
  if (passedOn_ || offset + bytes.size() > pending_.size()) {
    return false;
  }
  std::memcpy(pending_.data() + offset, bytes.data(), bytes.size());
  return true;
}

void WriteBehind::flush() {
  if (pending_.empty()) {
    return;
  }
  passedOn_ = true;
  if (std::fwrite(pending_.data(), 1, pending_.size(), file_) != pending_.size() ||
      std::ferror(file_)) {
    throw DataError(DataError::Code::unwritableFile);
  }
  pending_.clear();
}

} // namespace frameloom::ziploom::stream
