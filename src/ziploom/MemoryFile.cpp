#include <frameloom/ziploom/MemoryFile.h>

#include <frameloom/ziploom/Errors.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace frameloom::ziploom {

namespace {

using Reference = std::shared_ptr<MemoryFile>;

ssize_t readCallback(void* cookie, char* buffer, size_t count) {
  if (!cookie || !buffer) {
    return 0;
  }
  auto& file = **static_cast<Reference*>(cookie);
  return static_cast<ssize_t>(file.readBytes({reinterpret_cast<std::uint8_t*>(buffer), count}));
}

ssize_t writeCallback(void* cookie, const char* buffer, size_t count) {
  if (!cookie || !buffer) {
    return 0;
  }
  auto& file = **static_cast<Reference*>(cookie);
  try {
    return static_cast<ssize_t>(
        file.writeBytes({reinterpret_cast<const std::uint8_t*>(buffer), count}));
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

int seekCallback(void* cookie, off64_t* offset, int whence) {
  if (!cookie || !offset) {
    return -1;
  }
  auto& file = **static_cast<Reference*>(cookie);
  const auto position = file.seek(*offset, whence);
  if (position < 0) {
    return -1;
  }
  *offset = position;
  return 0;
}

int closeCallback(void* cookie) {
  delete static_cast<Reference*>(cookie);
  return 0;
}

} // namespace

std::shared_ptr<MemoryFile> MemoryFile::make(Bytes data) {
  return std::make_shared<MemoryFile>(std::move(data));
}

MemoryFile::MemoryFile(Bytes data) : data_(std::move(data)) {}

std::FILE* MemoryFile::openStream(AccessMode mode) {
  cookie_io_functions_t functions{};
  functions.read = readCallback;
  functions.write = mode == AccessMode::read ? nullptr : writeCallback;
  functions.seek = seekCallback;
  functions.close = closeCallback;
  auto* reference = new Reference(shared_from_this());
  std::FILE* stream = fopencookie(reference, mode == AccessMode::read ? "rb" : "rb+", functions);
  if (!stream) {
    delete reference;
    throw MemoryFileError(MemoryFileError::Code::invalidMemoryFile);
  }
  return stream;
}

std::size_t MemoryFile::readBytes(std::span<std::uint8_t> buffer) {
  const auto size = static_cast<std::int64_t>(data_.size());
  if (offset_ < 0 || offset_ >= size) {
    return 0;
  }
  const auto count = std::min<std::size_t>(buffer.size(), static_cast<std::size_t>(size - offset_));
  std::memcpy(buffer.data(), data_.data() + offset_, count);
  offset_ += static_cast<std::int64_t>(count);
  return count;
}

std::size_t MemoryFile::writeBytes(std::span<const std::uint8_t> bytes) {
  const auto count = static_cast<std::int64_t>(bytes.size());
  const auto size = static_cast<std::int64_t>(data_.size());
  std::int64_t end = 0;
  if (offset_ < 0 || __builtin_add_overflow(offset_, count, &end)) {
    return 0;
  }
  if (offset_ < size && end > size) {
    data_.resize(static_cast<std::size_t>(offset_));
  } else if (offset_ > size) {
    data_.resize(static_cast<std::size_t>(offset_), 0);
  }
  if (offset_ == static_cast<std::int64_t>(data_.size())) {
    data_.insert(data_.end(), bytes.begin(), bytes.end());
  } else {
    std::copy(bytes.begin(), bytes.end(), data_.begin() + offset_);
  }
  offset_ = end;
  return bytes.size();
}

void MemoryFile::truncate(std::size_t length) {
  if (length < data_.size()) {
    data_.resize(length);
  }
}

std::int64_t MemoryFile::seek(std::int64_t offset, int whence) {
  std::int64_t base = 0;
  switch (whence) {
  case SEEK_SET:
    break;
  case SEEK_CUR:
    base = offset_;
    break;
  case SEEK_END:
    base = static_cast<std::int64_t>(data_.size());
    break;
  default:
    offset_ = -1;
    return offset_;
  }
  if (__builtin_add_overflow(base, offset, &offset_)) {
    offset_ = -1;
  }
  return offset_;
}

} // namespace frameloom::ziploom
