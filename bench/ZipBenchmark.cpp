// Zipping and unzipping a generated folder with Ziploom, with Info-ZIP's zip and unzip, and with
// bare zlib plus CRC-32 doing the same reads and writes (the floor for any archiver), side by side
// in the same run at the same compression level. Each figure is the best of several runs taken
// in turns, so that every contender meets the same load; wall time and CPU time (user + system,
// the child's for Info-ZIP) are printed with the ratio of Ziploom's to the peer's (below 1 means
// Ziploom is faster) and whether the target is met. Ziploom's CPU time counts all its threads. The
// machine may be busy: compare ratios from one run, not figures across runs; CPU ratios are the
// steadier ones under load.
//
// Usage: ziploom_zip_benchmark [megabytes (default 200)] [runs (default 3)] [--folder-only]
// --folder-only times the mixed folder against Info-ZIP, deflated, and prints one line
// "megabytes ziploom-zip info-zip-zip ziploom-unzip info-zip-unzip" of wall seconds (for plots).

#include "BareInflate.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/FileSystem.h>

#include <sys/resource.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using frameloom::testing::TemporaryFolder;
using frameloom::testing::writeFile;

namespace {

std::string textBytes(std::mt19937_64& engine, std::size_t size) {
  static const std::string words[] = {"frame ",     "loom ",  "colour ",
                                      "archive ",   "entry ", "deflate ",
                                      "animation ", "layer ", "{\"k\":[0.5,0.25,1,1]}, "};
  std::string bytes;
  bytes.reserve(size + 32);
  while (bytes.size() < size) {
    bytes += words[engine() % std::size(words)];
  }
  bytes.resize(size);
  return bytes;
}

std::string randomBytes(std::mt19937_64& engine, std::size_t size) {
  std::string bytes(size + 8, '\0');
  for (std::size_t at = 0; at < size; at += 8) {
    const auto value = engine();
    std::memcpy(bytes.data() + at, &value, sizeof value);
  }
  bytes.resize(size);
  return bytes;
}

// Files of mixed sizes, from 256 bytes to 4 MB; half text-like (deflate shrinks it to about a
// third), half random (deflate cannot shrink it).
std::uint64_t makeMixedTree(const fs::path& root, std::uint64_t totalBytes) {
  std::mt19937_64 engine(7);
  std::uint64_t written = 0;
  for (int index = 0; written < totalBytes; ++index) {
    const auto folder =
        root / ("folder" + std::to_string(index % 17)) / ("sub" + std::to_string(index % 5));
    fs::create_directories(folder);
    const std::size_t size = std::size_t{256} << (engine() % 15);
    writeFile(folder / ("file" + std::to_string(index) + ".dat"),
              index % 2 == 0 ? textBytes(engine, size) : randomBytes(engine, size));
    written += size;
  }
  return written;
}

// 10,000 text-like files of 1 to 8 KB in folders of 500.
std::uint64_t makeSmallFiles(const fs::path& root) {
  std::mt19937_64 engine(11);
  std::uint64_t written = 0;
  for (int index = 0; index < 10000; ++index) {
    const auto folder = root / ("folder" + std::to_string(index / 500));
    fs::create_directories(folder);
    const std::size_t size = 1024 + engine() % (7 * 1024 + 1);
    writeFile(folder / ("small" + std::to_string(index) + ".txt"), textBytes(engine, size));
    written += size;
  }
  return written;
}

std::string quoted(const fs::path& path) {
  return "'" + path.string() + "'";
}

void run(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("failed: " + command);
  }
}

double cpuSeconds(const rusage& usage) {
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Time {
  double wall = 1e300;
  double cpu = 1e300;
};

// Wall and CPU seconds of `action`: this process's CPU time plus that of the children it waited
// for, so a shell command counts the peer's work.
Time measure(const std::function<void()>& action) {
  rusage selfBefore{}, childrenBefore{}, selfAfter{}, childrenAfter{};
  getrusage(RUSAGE_SELF, &selfBefore);
  getrusage(RUSAGE_CHILDREN, &childrenBefore);
  const auto start = std::chrono::steady_clock::now();
  action();
  const auto wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  getrusage(RUSAGE_SELF, &selfAfter);
  getrusage(RUSAGE_CHILDREN, &childrenAfter);
  return {wall, cpuSeconds(selfAfter) - cpuSeconds(selfBefore) + cpuSeconds(childrenAfter) -
                    cpuSeconds(childrenBefore)};
}

// The best wall and CPU times of `runs` runs of each action, taken in turns; `reset` runs untimed
// before each.
std::vector<Time> best(int runs, const std::function<void()>& reset,
                       const std::vector<std::function<void()>>& actions) {
  std::vector<Time> times(actions.size());
  for (int i = 0; i < runs; ++i) {
    for (std::size_t a = 0; a < actions.size(); ++a) {
      reset();
      const auto time = measure(actions[a]);
      times[a].wall = std::min(times[a].wall, time.wall);
      times[a].cpu = std::min(times[a].cpu, time.cpu);
    }
  }
  reset();
  return times;
}

void report(const std::string& what, double megabytes, const Time& ours, const char* peerName,
            const Time& peer, double target) {
  const double wallRatio = ours.wall / peer.wall;
  const double cpuRatio = ours.cpu / peer.cpu;
  std::printf("%-24s ziploom %7.3f s (cpu %7.3f, %6.1f MB/s)  %-9s %7.3f s (cpu %7.3f)  "
              "ratio wall %.2f cpu %.2f  target <= %.2f: %s\n",
              what.c_str(), ours.wall, ours.cpu, megabytes / ours.wall, peerName, peer.wall,
              peer.cpu, wallRatio, cpuRatio, target,
              cpuRatio <= target ? (wallRatio <= target ? "met" : "met (cpu only)") : "missed");
  std::fflush(stdout);
}

std::vector<fs::path> regularFiles(const fs::path& root) {
  std::vector<fs::path> files;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    if (item.is_regular_file()) {
      files.push_back(item.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open(const fs::path& path, const char* mode) {
  File file(std::fopen(path.c_str(), mode));
  if (!file) {
    throw std::runtime_error("cannot open " + path.string());
  }
  return file;
}

constexpr std::size_t bareChunk = 65536;

// The floor for zipping: every file read, CRC-32 over it, deflated (level 6, raw) or stored,
// written one after the other to a single output file.
void bareZip(const std::vector<fs::path>& files, const fs::path& output, bool deflate) {
  const auto out = open(output, "wb");
  std::vector<unsigned char> input(bareChunk), compressed(bareChunk);
  for (const auto& path : files) {
    const auto in = open(path, "rb");
    uLong crc = crc32_z(0, nullptr, 0);
    z_stream z{};
    if (deflate) {
      deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    }
    for (;;) {
      const auto n = std::fread(input.data(), 1, input.size(), in.get());
      crc = crc32_z(crc, input.data(), n);
      if (!deflate) {
        std::fwrite(input.data(), 1, n, out.get());
      } else {
        z.next_in = input.data();
        z.avail_in = static_cast<uInt>(n);
        const int flush = n < input.size() ? Z_FINISH : Z_NO_FLUSH;
        do {
          z.next_out = compressed.data();
          z.avail_out = static_cast<uInt>(compressed.size());
          ::deflate(&z, flush);
          std::fwrite(compressed.data(), 1, compressed.size() - z.avail_out, out.get());
        } while (z.avail_out == 0);
      }
      if (n < input.size()) {
        break;
      }
    }
    if (deflate) {
      deflateEnd(&z);
    }
  }
}

// The floor for unzipping: every stream read, inflated, CRC-32 over the output, written to its
// own new file in the same folder tree.
void bareUnzip(const fs::path& archivePath, const std::vector<bench::BareStream>& streams,
               const fs::path& destination) {
  const auto in = open(archivePath, "rb");
  std::vector<unsigned char> input(bareChunk), output(bareChunk);
  for (const auto& stream : streams) {
    const auto target = destination / stream.path;
    fs::create_directories(target.parent_path());
    const auto out = open(target, "wbx");
    bench::bareInflate(in.get(), stream, input, output, [&](std::span<const unsigned char> data) {
      std::fwrite(data.data(), 1, data.size(), out.get());
    });
  }
}

// Zips and unzips `source` with each contender; prints lines against Info-ZIP and against bare
// zlib. Returns the best wall times: ziploom zip, Info-ZIP zip, ziploom unzip, Info-ZIP unzip.
std::vector<double> compareFolder(const TemporaryFolder& work, const fs::path& source,
                                  double megabytes, int runs,
                                  frameloom::ziploom::CompressionMethod method, bool withBare,
                                  bool print) {
  const bool deflate = method == frameloom::ziploom::CompressionMethod::deflate;
  const std::string label = deflate ? "deflated" : "stored";
  const auto ours = work.path() / "ziploom.zip";
  const auto theirs = work.path() / "infozip.zip";
  const auto bare = work.path() / "bare.out";
  const auto clear = [&] {
    fs::remove(ours);
    fs::remove(theirs);
    fs::remove(bare);
  };
  const auto zipCommand = "cd " + quoted(source) + " && zip -q -r -y " + (deflate ? "-6 " : "-0 ") +
                          quoted(theirs) + " .";
  const auto files = regularFiles(source);
  std::vector<std::function<void()>> zippers{
      [&] { frameloom::ziploom::zipItem(source, ours, false, method); }, [&] { run(zipCommand); }};
  if (withBare) {
    zippers.emplace_back([&] { bareZip(files, bare, deflate); });
  }
  const auto zipping = best(runs, clear, zippers);

  frameloom::ziploom::zipItem(source, ours, false, method);
  run(zipCommand);
  if (print) {
    const auto ourSize = fs::file_size(ours);
    const auto theirSize = fs::file_size(theirs);
    std::printf("archive, %-15s ziploom %llu bytes, info-zip %llu bytes: %s\n", label.c_str(),
                static_cast<unsigned long long>(ourSize),
                static_cast<unsigned long long>(theirSize),
                ourSize <= theirSize ? "no larger (met)" : "larger (missed)");
  }
  const auto streams = bench::bareStreamsOf(ours);
  const auto unzipped = work.path() / "unzipped";
  const auto reset = [&] { fs::remove_all(unzipped); };
  std::vector<std::function<void()>> unzippers{
      [&] { frameloom::ziploom::unzipItem(ours, unzipped); },
      [&] { run("unzip -q " + quoted(ours) + " -d " + quoted(unzipped)); }};
  if (withBare) {
    unzippers.emplace_back([&] { bareUnzip(ours, streams, unzipped); });
  }
  const auto unzipping = best(runs, reset, unzippers);
  clear();

  if (print) {
    report("zip, " + label, megabytes, zipping[0], "info-zip", zipping[1], deflate ? 0.4 : 1.0);
    if (withBare) {
      report("zip, " + label, megabytes, zipping[0], "zlib+crc", zipping[2], 1.1);
    }
    report("unzip, " + label, megabytes, unzipping[0], "info-zip", unzipping[1],
           deflate ? 0.15 : 1.0);
    if (withBare) {
      report("unzip, " + label, megabytes, unzipping[0], "zlib+crc", unzipping[2], 1.1);
    }
  }
  return {zipping[0].wall, zipping[1].wall, unzipping[0].wall, unzipping[1].wall};
}

} // namespace

int main(int argc, char** argv) {
  const std::uint64_t megabytes = argc > 1 ? std::stoull(argv[1]) : 200;
  const int runs = argc > 2 ? std::stoi(argv[2]) : 3;
  const bool folderOnly = argc > 3 && std::string(argv[3]) == "--folder-only";
  TemporaryFolder work;
  const auto source = work.path() / "source";
  const double size = static_cast<double>(makeMixedTree(source, megabytes << 20)) / 1e6;
  if (folderOnly) {
    const auto times = compareFolder(work, source, size, runs,
                                     frameloom::ziploom::CompressionMethod::deflate, false, false);
    std::printf("%.1f %.3f %.3f %.3f %.3f\n", size, times[0], times[1], times[2], times[3]);
    return 0;
  }
  double load[1] = {0};
  getloadavg(load, 1);
  std::printf("mixed folder: %.1f MB in %zu files; best of %d runs; load average %.2f\n", size,
              regularFiles(source).size(), runs, load[0]);
  for (const auto method : {frameloom::ziploom::CompressionMethod::deflate,
                            frameloom::ziploom::CompressionMethod::none}) {
    compareFolder(work, source, size, runs, method, true, true);
  }
  fs::remove_all(source);

  const auto small = work.path() / "small";
  const double smallSize = static_cast<double>(makeSmallFiles(small)) / 1e6;
  std::printf("10,000 files of 1 to 8 KB: %.1f MB\n", smallSize);
  const auto ours = work.path() / "ziploom.zip";
  const auto theirs = work.path() / "infozip.zip";
  for (const auto method : {frameloom::ziploom::CompressionMethod::deflate,
                            frameloom::ziploom::CompressionMethod::none}) {
    const bool deflate = method == frameloom::ziploom::CompressionMethod::deflate;
    const auto times = best(runs,
                            [&] {
                              fs::remove(ours);
                              fs::remove(theirs);
                            },
                            {[&] { frameloom::ziploom::zipItem(small, ours, false, method); },
                             [&] {
                               run("cd " + quoted(small) + " && zip -q -r -y " +
                                   (deflate ? "-6 " : "-0 ") + quoted(theirs) + " .");
                             }});
    report(deflate ? "zip small, deflated" : "zip small, stored", smallSize, times[0], "info-zip",
           times[1], 1.0);
  }
  return 0;
}
