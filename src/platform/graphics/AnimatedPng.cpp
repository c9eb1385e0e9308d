#include <frameloom/platform/graphics/AnimatedPng.h>

#include <frameloom/platform/graphics/Png.h>

#include <zlib.h>

#include <array>
#include <span>
#include <stdexcept>
#include <string_view>

namespace frameloom::platform {

namespace {

constexpr std::array<std::uint8_t, 8> pngSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// Frame delays are written as milliseconds: a numerator over this denominator.
constexpr std::uint16_t millisecondsPerSecond = 1000;
constexpr int largestDelay = 65535;

void putU32(std::vector<std::uint8_t>& out, std::uint32_t value) {
  for (const int shift : {24, 16, 8, 0}) {
    out.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

void putU16(std::vector<std::uint8_t>& out, std::uint16_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}

std::uint32_t readU32(const std::uint8_t* bytes) {
  return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
         std::uint32_t{bytes[2]} << 8 | bytes[3];
}

// Appends a chunk: length, type, data, and the CRC of type and data.
void putChunk(std::vector<std::uint8_t>& out, std::string_view type,
              std::span<const std::uint8_t> data) {
  putU32(out, static_cast<std::uint32_t>(data.size()));
  const std::size_t typeAt = out.size();
  out.insert(out.end(), type.begin(), type.end());
  out.insert(out.end(), data.begin(), data.end());
  uLong crc = crc32(0, nullptr, 0);
  crc = crc32_z(crc, out.data() + typeAt, out.size() - typeAt);
  putU32(out, static_cast<std::uint32_t>(crc));
}

// Calls `visit` with the type and data of each chunk of a PNG made by encodePng.
template <typename Visit>
void forEachChunk(std::span<const std::uint8_t> png, Visit visit) {
  std::size_t at = pngSignature.size();
  while (at + 12 <= png.size()) {
    const std::size_t length = readU32(png.data() + at);
    if (length > png.size() - at - 12) {
      throw PngError("the PNG encoder wrote a truncated chunk");
    }
    visit(std::string_view(reinterpret_cast<const char*>(png.data() + at + 4), 4),
          png.subspan(at + 8, length));
    at += 12 + length;
  }
}

} // namespace

AnimatedPngWriter::AnimatedPngWriter(std::size_t width, std::size_t height, int loopCount)
    : width_(width), height_(height), loopCount_(loopCount) {}

void AnimatedPngWriter::addFrame(const Image& frame, int delayMs) {
  if (frame.width() != width_ || frame.height() != height_) {
    throw std::invalid_argument("an animated PNG frame of another size");
  }
  if (delayMs < 0 || delayMs > largestDelay) {
    throw std::invalid_argument("an animated PNG frame delay outside 0...65535 ms");
  }
  Frame added{{}, delayMs};
  forEachChunk(encodePng(frame), [&](std::string_view type, std::span<const std::uint8_t> data) {
    if (type == "IHDR" && header_.empty()) {
      header_.assign(data.begin(), data.end());
    } else if (type == "IDAT") {
      added.imageData.insert(added.imageData.end(), data.begin(), data.end());
    }
  });
  frames_.push_back(std::move(added));
}

std::vector<std::uint8_t> AnimatedPngWriter::finish() {
  if (frames_.empty()) {
    throw std::invalid_argument("an animated PNG without frames");
  }
  std::vector<std::uint8_t> out(pngSignature.begin(), pngSignature.end());
  putChunk(out, "IHDR", header_);
  std::vector<std::uint8_t> control;
  putU32(control, static_cast<std::uint32_t>(frames_.size()));
  putU32(control, static_cast<std::uint32_t>(loopCount_));
  putChunk(out, "acTL", control);
  // Frame controls and frame data share one sequence of numbers.
  std::uint32_t sequence = 0;
  for (std::size_t index = 0; index < frames_.size(); ++index) {
    const Frame& frame = frames_[index];
    control.clear();
    putU32(control, sequence++);
    putU32(control, static_cast<std::uint32_t>(width_));
    putU32(control, static_cast<std::uint32_t>(height_));
    putU32(control, 0); // x offset
    putU32(control, 0); // y offset
    putU16(control, static_cast<std::uint16_t>(frame.delayMs));
    putU16(control, millisecondsPerSecond);
    control.push_back(0); // dispose: leave the canvas as it is
    control.push_back(0); // blend: the frame replaces the canvas
    putChunk(out, "fcTL", control);
    if (index == 0) {
      // The first frame is the picture's own image data, which every viewer shows.
      putChunk(out, "IDAT", frame.imageData);
    } else {
      std::vector<std::uint8_t> data;
      data.reserve(frame.imageData.size() + 4);
      putU32(data, sequence++);
      data.insert(data.end(), frame.imageData.begin(), frame.imageData.end());
      putChunk(out, "fdAT", data);
    }
  }
  putChunk(out, "IEND", {});
  frames_.clear();
  return out;
}

} // namespace frameloom::platform
