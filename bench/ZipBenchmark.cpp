// Zipping and unzipping a generated folder with Ziploom and with Info-ZIP's zip and unzip, side by
// side in the same run, at the same compression level. Prints MB/s for both and the ratio of
// Ziploom's time to Info-ZIP's (below 1 means Ziploom is faster). Each figure is the best of
// several runs, taken in turns with the peer; the machine may be busy, so compare ratios from one
// run, not figures across runs.
//
// Usage: ziploom_zip_benchmark [megabytes (default 200)] [runs (default 3)]

#include "ziploom/FileSystem.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>

namespace fs = std::filesystem;

namespace {

class Folder {
public:
  Folder() {
    auto name = (fs::temp_directory_path() / "ziploom-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary folder");
    }
    path_ = name;
  }
  ~Folder() { fs::remove_all(path_); }
  const fs::path& path() const { return path_; }

private:
  fs::path path_;
};

// Files of mixed sizes, from a few hundred bytes to a few megabytes; half text-like (deflate
// shrinks it to about a third), half random (deflate cannot shrink it).
std::uint64_t makeMixedTree(const fs::path& root, std::uint64_t totalBytes) {
  std::mt19937_64 engine(7);
  std::uint64_t written = 0;
  const std::string words[] = {"frame ",     "loom ",  "colour ",
                               "archive ",   "entry ", "deflate ",
                               "animation ", "layer ", "{\"k\":[0.5,0.25,1,1]}, "};
  for (int index = 0; written < totalBytes; ++index) {
    const auto folder =
        root / ("folder" + std::to_string(index % 17)) / ("sub" + std::to_string(index % 5));
    fs::create_directories(folder);
    const std::uint64_t size = std::uint64_t{256} << (engine() % 15);
    std::string bytes;
    bytes.reserve(size);
    if (index % 2 == 0) {
      while (bytes.size() < size) {
        bytes += words[engine() % std::size(words)];
      }
      bytes.resize(size);
    } else {
      while (bytes.size() < size) {
        const auto value = engine();
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
      }
      bytes.resize(size);
    }
    std::ofstream(folder / ("file" + std::to_string(index) + ".dat"), std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    written += size;
  }
  return written;
}

void makeSmallFiles(const fs::path& root, int count) {
  for (int index = 0; index < count; ++index) {
    const auto folder = root / ("folder" + std::to_string(index / 500));
    fs::create_directories(folder);
    std::ofstream(folder / ("small" + std::to_string(index) + ".txt")) << "small file " << index;
  }
}

std::string quoted(const fs::path& path) {
  return "'" + path.string() + "'";
}

void run(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("failed: " + command);
  }
}

double seconds(const std::function<void()>& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The best times of `runs` runs of each action, taken in turns so that both meet the same load;
// `reset` runs untimed before each.
std::pair<double, double> bestSeconds(int runs, const std::function<void()>& reset,
                                      const std::function<void()>& ours,
                                      const std::function<void()>& theirs) {
  std::pair<double, double> best{1e300, 1e300};
  for (int i = 0; i < runs; ++i) {
    reset();
    best.first = std::min(best.first, seconds(ours));
    reset();
    best.second = std::min(best.second, seconds(theirs));
  }
  return best;
}

void report(const char* what, double megabytes, double ziploom, double infoZip) {
  std::printf("%-34s ziploom %7.3f s %8.1f MB/s   info-zip %7.3f s %8.1f MB/s   ratio %.2f\n", what,
              ziploom, megabytes / ziploom, infoZip, megabytes / infoZip, ziploom / infoZip);
  std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
  const std::uint64_t megabytes = argc > 1 ? std::stoull(argv[1]) : 200;
  const int runs = argc > 2 ? std::stoi(argv[2]) : 3;
  Folder work;
  const auto source = work.path() / "source";
  const auto bytes = makeMixedTree(source, megabytes << 20);
  const double size = static_cast<double>(bytes) / 1e6;
  std::printf("source: %.1f MB in %zu items; best of %d runs; taken on a shared, busy machine\n",
              size,
              static_cast<std::size_t>(std::distance(fs::recursive_directory_iterator(source),
                                                     fs::recursive_directory_iterator())),
              runs);

  const auto ours = work.path() / "ziploom.zip";
  const auto theirs = work.path() / "infozip.zip";
  const auto clear = [&] {
    fs::remove(ours);
    fs::remove(theirs);
  };
  for (const auto method :
       {ziploom::CompressionMethod::deflate, ziploom::CompressionMethod::none}) {
    const bool deflate = method == ziploom::CompressionMethod::deflate;
    const auto zipCommand = "cd " + quoted(source) + " && zip -q -r -y " +
                            (deflate ? "-6 " : "-0 ") + quoted(theirs) + " .";
    const auto [zipping, infoZipping] = bestSeconds(
        runs, clear, [&] { ziploom::zipItem(source, ours, false, method); },
        [&] { run(zipCommand); });
    report(deflate ? "zip, deflated" : "zip, stored", size, zipping, infoZipping);

    ziploom::zipItem(source, ours, false, method);
    const auto unzipped = work.path() / "unzipped";
    const auto reset = [&] { fs::remove_all(unzipped); };
    const auto [unzipping, infoUnzipping] = bestSeconds(
        runs, reset, [&] { ziploom::unzipItem(ours, unzipped); },
        [&] { run("unzip -q " + quoted(ours) + " -d " + quoted(unzipped)); });
    report(deflate ? "unzip, deflated" : "unzip, stored", size, unzipping, infoUnzipping);
    reset();
    clear();
  }

  const auto small = work.path() / "small";
  makeSmallFiles(small, 10000);
  const auto [smallZipping, smallInfoZipping] = bestSeconds(
      runs, clear,
      [&] { ziploom::zipItem(small, ours, false, ziploom::CompressionMethod::deflate); },
      [&] { run("cd " + quoted(small) + " && zip -q -r -y -6 " + quoted(theirs) + " ."); });
  std::printf("%-34s ziploom %7.3f s   info-zip %7.3f s   ratio %.2f\n", "zip, 10,000 small files",
              smallZipping, smallInfoZipping, smallZipping / smallInfoZipping);
  return 0;
}
