#include "support/AnimatedPictures.h"

#include "support/Files.h"
#include <frameloom/platform/graphics/Png.h>

#include <gif_lib.h>
#include <webp/demux.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace frameloom::testing {

namespace {

struct Reader {
  const std::vector<std::uint8_t>& bytes;
  std::size_t offset = 0;
};

int readFromBytes(GifFileType* gif, GifByteType* out, int length) {
  auto* reader = static_cast<Reader*>(gif->UserData);
  const auto count = std::min<std::size_t>(static_cast<std::size_t>(length),
                                           reader->bytes.size() - reader->offset);
  std::memcpy(out, reader->bytes.data() + reader->offset, count);
  reader->offset += count;
  return static_cast<int>(count);
}

std::vector<std::uint8_t> fileBytes(const std::filesystem::path& path) {
  const std::string text = readText(path);
  return {text.begin(), text.end()};
}

// The loop block counts repeats after the first play; no block plays once.
int gifLoopCount(const GifFileType& gif) {
  for (int i = 0; i < gif.ImageCount; ++i) {
    const SavedImage& image = gif.SavedImages[i];
    for (int b = 0; b + 1 < image.ExtensionBlockCount; ++b) {
      const ExtensionBlock& block = image.ExtensionBlocks[b];
      if (block.Function == APPLICATION_EXT_FUNC_CODE && block.ByteCount == 11 &&
          std::memcmp(block.Bytes, "NETSCAPE2.0", 11) == 0) {
        const ExtensionBlock& data = image.ExtensionBlocks[b + 1];
        const int repeats = data.Bytes[1] | (data.Bytes[2] << 8);
        return repeats == 0 ? 0 : repeats + 1;
      }
    }
  }
  return 1;
}

} // namespace

DecodedAnimation decodeGif(const std::vector<std::uint8_t>& bytes) {
  Reader reader{bytes};
  int error = 0;
  GifFileType* gif = DGifOpen(&reader, readFromBytes, &error);
  if (gif == nullptr || DGifSlurp(gif) != GIF_OK) {
    if (gif != nullptr) {
      DGifCloseFile(gif, &error);
    }
    throw std::runtime_error("not a GIF giflib reads");
  }
  DecodedAnimation result;
  result.width = static_cast<std::size_t>(gif->SWidth);
  result.height = static_cast<std::size_t>(gif->SHeight);
  result.loopCount = gifLoopCount(*gif);
  int time = 0;
  for (int i = 0; i < gif->ImageCount; ++i) {
    const SavedImage& image = gif->SavedImages[i];
    GraphicsControlBlock control{};
    control.TransparentColor = NO_TRANSPARENT_COLOR;
    DGifSavedExtensionToGCB(gif, i, &control);
    const ColorMapObject* map =
        image.ImageDesc.ColorMap ? image.ImageDesc.ColorMap : gif->SColorMap;
    // Every frame the writer makes covers the whole canvas.
    std::vector<std::uint8_t> pixels(result.width * result.height * 4, 0);
    for (std::size_t p = 0; p < result.width * result.height; ++p) {
      const int index = image.RasterBits[p];
      if (index == control.TransparentColor) {
        continue;
      }
      const GifColorType color = map->Colors[index];
      pixels[p * 4] = color.Red;
      pixels[p * 4 + 1] = color.Green;
      pixels[p * 4 + 2] = color.Blue;
      pixels[p * 4 + 3] = 255;
    }
    result.frames.push_back(platform::Image::make(result.width, result.height, std::move(pixels)));
    result.startTimes.push_back(time);
    time += control.DelayTime * 10;
  }
  result.duration = time;
  DGifCloseFile(gif, &error);
  return result;
}

DecodedAnimation decodeWebp(const std::vector<std::uint8_t>& bytes) {
  WebPAnimDecoderOptions options;
  WebPAnimDecoderOptionsInit(&options);
  options.color_mode = MODE_rgbA;
  const WebPData data{bytes.data(), bytes.size()};
  WebPAnimDecoder* decoder = WebPAnimDecoderNew(&data, &options);
  if (decoder == nullptr) {
    throw std::runtime_error("not an animated WebP libwebp reads");
  }
  WebPAnimInfo info;
  WebPAnimDecoderGetInfo(decoder, &info);
  DecodedAnimation result;
  result.width = info.canvas_width;
  result.height = info.canvas_height;
  result.loopCount = static_cast<int>(info.loop_count);
  int previous = 0;
  while (WebPAnimDecoderHasMoreFrames(decoder)) {
    std::uint8_t* canvas = nullptr;
    int end = 0;
    WebPAnimDecoderGetNext(decoder, &canvas, &end);
    result.frames.push_back(platform::Image::make(
        result.width, result.height,
        std::vector<std::uint8_t>(canvas, canvas + result.width * result.height * 4)));
    // The decoder reports when each frame ends.
    result.startTimes.push_back(previous);
    previous = end;
  }
  result.duration = previous;
  WebPAnimDecoderDelete(decoder);
  return result;
}

namespace {

std::uint32_t bigEndian(const std::uint8_t* bytes, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    value = value << 8 | bytes[i];
  }
  return value;
}

void appendChunk(std::vector<std::uint8_t>& png, const char* type, const std::uint8_t* data,
                 std::size_t size) {
  for (const int shift : {24, 16, 8, 0}) {
    png.push_back(static_cast<std::uint8_t>(size >> shift));
  }
  const std::size_t typeAt = png.size();
  png.insert(png.end(), type, type + 4);
  png.insert(png.end(), data, data + size);
  const auto crc = crc32_z(0, png.data() + typeAt, png.size() - typeAt);
  for (const int shift : {24, 16, 8, 0}) {
    png.push_back(static_cast<std::uint8_t>(crc >> shift));
  }
}

} // namespace

DecodedAnimation decodeApng(const std::filesystem::path& path) {
  const std::vector<std::uint8_t> bytes = fileBytes(path);
  const std::vector<std::uint8_t> signature(bytes.begin(), bytes.begin() + 8);
  std::vector<std::uint8_t> header;
  DecodedAnimation result;
  std::uint32_t expectedSequence = 0;
  int time = 0;
  // Each frame becomes a PNG of its own: the signature, the header, its image data, the end.
  const auto decodeFrame = [&](const std::vector<std::uint8_t>& imageData) {
    std::vector<std::uint8_t> png = signature;
    appendChunk(png, "IHDR", header.data(), header.size());
    appendChunk(png, "IDAT", imageData.data(), imageData.size());
    appendChunk(png, "IEND", nullptr, 0);
    result.frames.push_back(platform::decodePng(png));
  };
  for (std::size_t at = 8; at + 12 <= bytes.size();) {
    const std::uint32_t length = bigEndian(&bytes[at], 4);
    const std::string type(bytes.begin() + at + 4, bytes.begin() + at + 8);
    const std::uint8_t* data = &bytes[at + 8];
    if (crc32_z(0, &bytes[at + 4], length + 4) != bigEndian(data + length, 4)) {
      throw std::runtime_error("bad CRC in chunk " + type);
    }
    const auto sequenceIs = [&](std::uint32_t number) {
      if (number != expectedSequence++) {
        throw std::runtime_error("sequence number out of order in chunk " + type);
      }
    };
    if (type == "IHDR") {
      header.assign(data, data + length);
      result.width = bigEndian(data, 4);
      result.height = bigEndian(data + 4, 4);
    } else if (type == "acTL") {
      result.loopCount = static_cast<int>(bigEndian(data + 4, 4));
    } else if (type == "fcTL") {
      sequenceIs(bigEndian(data, 4));
      result.startTimes.push_back(time);
      const auto denominator = bigEndian(data + 22, 2);
      time += static_cast<int>(bigEndian(data + 20, 2) * 1000 / (denominator ? denominator : 100));
    } else if (type == "IDAT") {
      decodeFrame(std::vector<std::uint8_t>(data, data + length));
    } else if (type == "fdAT") {
      sequenceIs(bigEndian(data, 4));
      decodeFrame(std::vector<std::uint8_t>(data + 4, data + length));
    }
    at += 12 + length;
  }
  result.duration = time;
  return result;
}

DecodedAnimation decodeGif(const std::filesystem::path& path) {
  return decodeGif(fileBytes(path));
}
DecodedAnimation decodeWebp(const std::filesystem::path& path) {
  return decodeWebp(fileBytes(path));
}

const platform::Image& frameAt(const DecodedAnimation& animation, int time) {
  std::size_t shown = 0;
  while (shown + 1 < animation.frames.size() && animation.startTimes[shown + 1] <= time) {
    ++shown;
  }
  return *animation.frames.at(shown);
}

namespace {

// Calls `visit` with each channel difference of every pixel of `a` and the same pixel of `b`.
template <typename Visit>
void forEachDifference(const platform::Image& a, const platform::Image& b, Visit visit) {
  for (std::size_t y = 0; y < a.height(); ++y) {
    for (std::size_t x = 0; x < a.width(); ++x) {
      const auto p = a.pixel(x, y);
      const auto q = b.pixel(x, y);
      for (const int difference : {p.r - q.r, p.g - q.g, p.b - q.b, p.a - q.a}) {
        visit(std::abs(difference));
      }
    }
  }
}

} // namespace

int largestDifference(const platform::Image& a, const platform::Image& b) {
  int largest = 0;
  forEachDifference(a, b, [&](int difference) { largest = std::max(largest, difference); });
  return largest;
}

double meanDifference(const platform::Image& a, const platform::Image& b) {
  double sum = 0;
  forEachDifference(a, b, [&](int difference) { sum += difference; });
  return sum / static_cast<double>(a.width() * a.height() * 4);
}

} // namespace frameloom::testing
