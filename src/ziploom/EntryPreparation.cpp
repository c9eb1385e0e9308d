#include "ziploom/EntryPreparation.h"

#include <frameloom/platform/system/UniqueFile.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

namespace frameloom::ziploom::preparation {

using EntryType = Entry::EntryType;

ItemStatus inspect(const std::filesystem::path& url) {
  struct stat status {};
  if (lstat(url.c_str(), &status) != 0) {
    throw FileError(FileError::Code::fileReadNoSuchFile, url);
  }
  const auto type = S_ISDIR(status.st_mode)   ? EntryType::directory
                    : S_ISLNK(status.st_mode) ? EntryType::symlink
                                              : EntryType::file;
  if (type != EntryType::symlink && access(url.c_str(), R_OK) != 0) {
    throw FileError(FileError::Code::fileReadNoPermission, url);
  }
  if (type == EntryType::file && !S_ISREG(status.st_mode)) {
    throw FileError(FileError::Code::fileReadNoPermission, url);
  }
  if (status.st_size < 0) {
    throw FileError(FileError::Code::fileReadTooLarge, url);
  }
  return {type, type == EntryType::directory ? 0 : static_cast<std::int64_t>(status.st_size),
          std::chrono::system_clock::time_point(
              std::chrono::duration_cast<std::chrono::system_clock::duration>(
                  std::chrono::seconds(status.st_mtim.tv_sec) +
                  std::chrono::nanoseconds(status.st_mtim.tv_nsec))),
          static_cast<std::uint16_t>(status.st_mode)};
}

Preparer::Preparer(std::vector<std::filesystem::path> urls, int level)
    : urls_(std::move(urls)), level_(level), states_(urls_.size(), State::waiting),
      results_(urls_.size()) {
  const auto workers = std::min<std::size_t>(
      {urls_.size(), std::max(1u, std::thread::hardware_concurrency()), maximumWorkers});
  try {
    for (std::size_t i = 0; i < workers; ++i) {
      workers_.emplace_back([this] { work(); });
    }
  } catch (...) {
    stop();
    throw;
  }
}

Preparer::~Preparer() {
  stop();
}

void Preparer::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (auto& worker : workers_) {
    worker.join();
  }
}

std::unique_ptr<PreparedFile> Preparer::take(std::size_t index) {
  std::unique_lock lock(mutex_);
  nextToTake_ = index;
  // A worker waiting for room may go on now that this item's turn has come.
  changed_.notify_all();
  changed_.wait(lock, [&] { return states_[index] == State::done; });
  auto result = std::move(results_[index]);
  if (result) {
    inFlight_ -= static_cast<std::uint64_t>(result->status.size);
  }
  nextToTake_ = index + 1;
  changed_.notify_all();
  return result;
}

void Preparer::work() {
  std::optional<whole::Deflater> deflater;
  for (;;) {
    std::size_t index = 0;
    {
      const std::lock_guard lock(mutex_);
      if (stopping_ || nextToClaim_ == urls_.size()) {
        return;
      }
      index = nextToClaim_++;
    }
    std::unique_ptr<PreparedFile> result;
    try {
      if (!deflater) {
        deflater.emplace(level_);
      }
      result = prepare(index, *deflater);
    } catch (...) {
      // The writer reads the item itself and meets the error there, in its place in the list.
      result = nullptr;
    }
    {
      const std::lock_guard lock(mutex_);
      results_[index] = std::move(result);
      states_[index] = State::done;
    }
    changed_.notify_all();
  }
}

std::unique_ptr<PreparedFile> Preparer::prepare(std::size_t index, whole::Deflater& deflater) {
  const auto& url = urls_[index];
  auto prepared = std::make_unique<PreparedFile>(PreparedFile{inspect(url), {}, 0});
  const auto size = static_cast<std::uint64_t>(prepared->status.size);
  if (prepared->status.type != EntryType::file || size > whole::maximumSize) {
    return nullptr;
  }
  {
    // Room is taken in list order only for the item the writer waits for, so the items ahead of
    // it can never hold all the room while it waits.
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] {
      return stopping_ || index == nextToTake_ || inFlight_ + size <= maximumBytesInFlight;
    });
    if (stopping_) {
      return nullptr;
    }
    inFlight_ += size;
  }
  try {
    // One more byte than the size shows a file that grew since it was looked at.
    Bytes source(static_cast<std::size_t>(size) + 1);
    const platform::UniqueFile file(std::fopen(url.c_str(), "rb"));
    const bool complete = file && std::fread(source.data(), 1, source.size(), file.get()) == size &&
                          !std::ferror(file.get());
    if (!complete) {
      throw FileError(FileError::Code::fileReadNoPermission, url);
    }
    source.resize(static_cast<std::size_t>(size));
    prepared->checksum = crc32(source);
    deflater.deflate(source, prepared->compressed);
  } catch (...) {
    {
      const std::lock_guard lock(mutex_);
      inFlight_ -= size;
    }
    changed_.notify_all();
    throw;
  }
  return prepared;
}

} // namespace frameloom::ziploom::preparation
