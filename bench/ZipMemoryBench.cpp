// Peak resident memory of adding and extracting one large entry, file to file, each in a child
// process of its own so that its peak is not mixed with the data generation or the other cases.
// Prints the peak (VmHWM, from wait4's ru_maxrss) against the 50 MB target, for compressible and
// incompressible data, deflated and stored.
//
// Usage: ziploom_memory_bench [megabytes (default 1024)]

#include <frameloom/ziploom/Archive.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>

namespace fs = std::filesystem;

namespace {

constexpr double targetMegabytes = 50;

// Runs `action` in a child process; returns its peak resident size in MB, or -1 when it failed.
double peakMegabytesOf(const std::function<void()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      action();
      _exit(0);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "failed: %s\n", error.what());
      _exit(1);
    }
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    return -1;
  }
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void makeFile(const fs::path& path, std::uint64_t size, bool compressible) {
  std::mt19937_64 engine(5);
  std::ofstream out(path, std::ios::binary);
  std::string block(1 << 20, '\0');
  for (std::uint64_t written = 0; written < size; written += block.size()) {
    for (std::size_t at = 0; at < block.size(); at += 8) {
      // Text-like data keeps only a few letters of each random word.
      const auto value =
          compressible ? 0x2020202020202020ull | (engine() & 0x0303030303030303ull) : engine();
      std::memcpy(block.data() + at, &value, 8);
    }
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
  }
}

} // namespace

int main(int argc, char** argv) {
  const std::uint64_t megabytes = argc > 1 ? std::stoull(argv[1]) : 1024;
  const auto folder = fs::temp_directory_path() / ("ziploom-memory-" + std::to_string(getpid()));
  fs::create_directories(folder);
  std::printf("peak resident size for one entry of %llu MB, file to file (target: under %.0f MB)\n",
              static_cast<unsigned long long>(megabytes), targetMegabytes);
  bool met = true;
  for (const bool compressible : {true, false}) {
    const auto source = folder / "source.dat";
    makeFile(source, megabytes << 20, compressible);
    for (const auto method : {frameloom::ziploom::CompressionMethod::deflate,
                              frameloom::ziploom::CompressionMethod::none}) {
      const auto archivePath = folder / "archive.zip";
      const auto adding = peakMegabytesOf([&] {
        frameloom::ziploom::Archive archive(archivePath, frameloom::ziploom::AccessMode::create);
        archive.addEntry("source.dat", frameloom::ziploom::Archive::RelativeTo{folder}, method);
      });
      const auto extracting = peakMegabytesOf([&] {
        frameloom::ziploom::Archive archive(archivePath, frameloom::ziploom::AccessMode::read);
        archive.extract(*archive["source.dat"], folder / "extracted.dat");
      });
      const bool same = fs::exists(folder / "extracted.dat") &&
                        std::system(("cmp -s '" + source.string() + "' '" +
                                     (folder / "extracted.dat").string() + "'")
                                        .c_str()) == 0;
      for (const auto& [what, peak] : {std::pair{"add", adding}, {"extract", extracting}}) {
        const bool ok = peak >= 0 && peak < targetMegabytes && same;
        met = met && ok;
        std::printf("%-8s %-14s %-9s peak %7.1f MB  %s\n", what,
                    compressible ? "compressible" : "incompressible",
                    method == frameloom::ziploom::CompressionMethod::deflate ? "deflated"
                                                                             : "stored",
                    peak, ok ? "met" : (same ? "missed" : "missed (extracted data differs)"));
        std::fflush(stdout);
      }
      fs::remove(archivePath);
      fs::remove(folder / "extracted.dat");
    }
  }
  fs::remove_all(folder);
  return met ? 0 : 1;
}
