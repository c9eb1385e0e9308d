#pragma once

#include "ziploom/WholeBuffer.h"
#include <frameloom/ziploom/Entry.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// Reading and deflating the files of a list of items ahead of the thread that writes them into an
// archive, so that several entries compress at once while the archive is still written in order.
namespace frameloom::ziploom::preparation {

// What lstat says about an item to add: a link is described, never followed.
struct ItemStatus {
  Entry::EntryType type;
  std::int64_t size;
  std::chrono::system_clock::time_point modificationDate;
  std::uint16_t permissions;
};

// Looks at the item at `url`. Throws FileError when it is missing, unreadable, or a file that is
// not a regular one (a pipe or a device could block forever or never end).
ItemStatus inspect(const std::filesystem::path& url);

// A regular file read and deflated whole.
struct PreparedFile {
  ItemStatus status;
  Bytes compressed;
  std::uint32_t checksum = 0;
};

// Source bytes read ahead and not yet taken by the writer: enough to keep every worker busy on
// files up to the whole-buffer size while the writer catches up. With their compressed copies,
// memory stays within about twice this, plus the one file the writer waits for.
inline constexpr std::uint64_t maximumBytesInFlight = 32 * 1024 * 1024;

// At most this many threads compress at once: past the cores of a small machine more only wait.
inline constexpr unsigned maximumWorkers = 4;

// Owns the worker threads, started on construction and joined on destruction (which stops them
// early when the writer gave up). Items are taken by one writing thread, in list order. A file
// the workers cannot prepare (not a regular file, larger than the whole-buffer size, changed
// while read, or failing in any way) is left to the writer, which then meets any error itself.
class Preparer {
public:
  // Files are deflated at `level` (Compression.h).
  Preparer(std::vector<std::filesystem::path> urls, int level);
  ~Preparer();
  Preparer(const Preparer&) = delete;
  Preparer& operator=(const Preparer&) = delete;

  // Waits for item `index` (the one after the item taken last) and returns it, or nothing when
  // the writer must read it itself.
  std::unique_ptr<PreparedFile> take(std::size_t index);

private:
  enum class State { waiting, done };
  void stop();
  void work();
  std::unique_ptr<PreparedFile> prepare(std::size_t index, whole::Deflater& deflater);

  std::vector<std::filesystem::path> urls_;
  int level_;
  std::vector<State> states_;
  std::vector<std::unique_ptr<PreparedFile>> results_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t nextToClaim_ = 0;
  std::size_t nextToTake_ = 0;
  std::uint64_t inFlight_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

} // namespace frameloom::ziploom::preparation
