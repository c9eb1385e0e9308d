#include <frameloom/platform/graphics/Gif.h>

#include "platform/graphics/ColorQuantizer.h"

#include <gif_lib.h>

#include <stdexcept>
#include <string>

namespace frameloom::platform {

namespace {

// 255 colours and the transparent index fit the largest palette a GIF picture may carry.
constexpr std::size_t maxPaletteSize = 256;
// GIF stores sizes and delays in 16 bits.
constexpr std::size_t maxGifDimension = 65535;
constexpr int maxDelay = 65535;

int writeToBytes(GifFileType* gif, const GifByteType* data, int length) {
  auto* bytes = static_cast<std::vector<std::uint8_t>*>(gif->UserData);
  bytes->insert(bytes->end(), data, data + length);
  return length;
}

[[noreturn]] void fail(const std::string& what, int code) {
  const char* reason = GifErrorString(code);
  throw GifError("GIF encoding failed: " + what + (reason ? std::string(": ") + reason : ""));
}

// The smallest power of two (at least 2) that holds `count` entries.
int paletteSize(std::size_t count) {
  int size = 2;
  while (static_cast<std::size_t>(size) < count) {
    size *= 2;
  }
  return size;
}

} // namespace

struct GifWriter::Encoder {
  std::vector<std::uint8_t> bytes;
  GifFileType* gif = nullptr;
  std::size_t width = 0;
  std::size_t height = 0;

  void check(int status, const char* what) const {
    if (status != GIF_OK) {
      fail(what, gif->Error);
    }
  }
};

GifWriter::GifWriter(std::size_t width, std::size_t height, int loopCount)
    : encoder_(std::make_unique<Encoder>()) {
  if (width == 0 || height == 0 || width > maxGifDimension || height > maxGifDimension ||
      loopCount < 0 || loopCount > maxDelay + 1) {
    throw std::invalid_argument("GIF size or loop count out of range");
  }
  encoder_->width = width;
  encoder_->height = height;
  int error = 0;
  encoder_->gif = EGifOpen(&encoder_->bytes, writeToBytes, &error);
  if (encoder_->gif == nullptr) {
    fail("cannot start", error);
  }
  EGifSetGifVersion(encoder_->gif, true);
  encoder_->check(EGifPutScreenDesc(encoder_->gif, static_cast<int>(width),
                                    static_cast<int>(height), 8, 0, nullptr),
                  "screen");
  // Played once, a GIF needs no loop block; otherwise the block counts the repeats after the
  // first play, 0 meaning forever.
  if (loopCount != 1) {
    const int repeats = loopCount == 0 ? 0 : loopCount - 1;
    const GifByteType application[] = {'N', 'E', 'T', 'S', 'C', 'A', 'P', 'E', '2', '.', '0'};
    const GifByteType loop[] = {1, static_cast<GifByteType>(repeats & 0xff),
                                static_cast<GifByteType>(repeats >> 8)};
    encoder_->check(EGifPutExtensionLeader(encoder_->gif, APPLICATION_EXT_FUNC_CODE), "loop");
    encoder_->check(EGifPutExtensionBlock(encoder_->gif, sizeof application, application), "loop");
    encoder_->check(EGifPutExtensionBlock(encoder_->gif, sizeof loop, loop), "loop");
    encoder_->check(EGifPutExtensionTrailer(encoder_->gif), "loop");
  }
}

GifWriter::~GifWriter() {
  if (encoder_->gif != nullptr) {
    EGifCloseFile(encoder_->gif, nullptr);
  }
}

void GifWriter::addFrame(const Image& frame, int delayCentiseconds) {
  if (encoder_->gif == nullptr) {
    throw std::logic_error("the GIF is finished");
  }
  if (frame.width() != encoder_->width || frame.height() != encoder_->height) {
    throw std::invalid_argument("a GIF frame differs in size from the first");
  }
  if (delayCentiseconds < 0 || delayCentiseconds > maxDelay) {
    throw std::invalid_argument("GIF frame delay out of range");
  }
  const IndexedFrame indexed = quantize(frame, maxPaletteSize);

  // Each frame covers the whole picture, so the previous one is cleared before it is drawn:
  // otherwise its pixels would show through the transparent ones.
  GraphicsControlBlock control{};
  control.DisposalMode = DISPOSE_BACKGROUND;
  control.UserInputFlag = false;
  control.DelayTime = delayCentiseconds;
  control.TransparentColor =
      indexed.transparentIndex < 0 ? NO_TRANSPARENT_COLOR : indexed.transparentIndex;
  GifByteType extension[4];
  const std::size_t extensionLength = EGifGCBToExtension(&control, extension);
  encoder_->check(EGifPutExtension(encoder_->gif, GRAPHICS_EXT_FUNC_CODE,
                                   static_cast<int>(extensionLength), extension),
                  "frame timing");

  std::vector<GifColorType> colors(static_cast<std::size_t>(paletteSize(indexed.palette.size())));
  for (std::size_t i = 0; i < indexed.palette.size(); ++i) {
    colors[i] = {indexed.palette[i][0], indexed.palette[i][1], indexed.palette[i][2]};
  }
  ColorMapObject* map = GifMakeMapObject(static_cast<int>(colors.size()), colors.data());
  if (map == nullptr) {
    throw std::bad_alloc();
  }
  const int status = EGifPutImageDesc(encoder_->gif, 0, 0, static_cast<int>(encoder_->width),
                                      static_cast<int>(encoder_->height), false, map);
  GifFreeMapObject(map);
  encoder_->check(status, "frame");
  std::vector<GifPixelType> row(encoder_->width);
  for (std::size_t y = 0; y < encoder_->height; ++y) {
    const auto* start = indexed.indices.data() + y * encoder_->width;
    row.assign(start, start + encoder_->width);
    encoder_->check(EGifPutLine(encoder_->gif, row.data(), static_cast<int>(encoder_->width)),
                    "frame pixels");
  }
}

std::vector<std::uint8_t> GifWriter::finish() {
  if (encoder_->gif == nullptr) {
    throw std::logic_error("the GIF is finished");
  }
  int error = 0;
  const int status = EGifCloseFile(encoder_->gif, &error);
  encoder_->gif = nullptr;
  if (status != GIF_OK) {
    fail("cannot finish", error);
  }
  return std::move(encoder_->bytes);
}

} // namespace frameloom::platform
