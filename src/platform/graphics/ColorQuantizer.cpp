#include "platform/graphics/ColorQuantizer.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_map>
#include <unordered_set>

namespace frameloom::platform {

namespace {

constexpr std::uint8_t opaqueAlpha = 128;
// The histogram keeps 5 bits of each channel; the palette entries are the exact averages of the
// pixels that fell into each box, so precision is lost only in where boxes are cut.
constexpr int histogramBits = 5;
constexpr int histogramSize = 1 << (3 * histogramBits);
// The nearest-colour cache is indexed by 6 bits of each channel of the (dithered) colour.
constexpr int lookupBits = 6;

using Rgb = std::array<std::uint8_t, 3>;

struct Cell {
  std::array<int, 3> key{}; // the 5-bit channel values
  std::uint64_t count = 0;
  std::array<std::uint64_t, 3> sum{};
};

struct Box {
  std::vector<Cell>::iterator begin;
  std::vector<Cell>::iterator end;
  std::uint64_t count = 0;
  int widestChannel = 0;
  int range = 0;
};

Box makeBox(std::vector<Cell>::iterator begin, std::vector<Cell>::iterator end) {
  Box box{begin, end};
  std::array<int, 3> low{255, 255, 255};
  std::array<int, 3> high{0, 0, 0};
  for (auto cell = begin; cell != end; ++cell) {
    box.count += cell->count;
    for (int c = 0; c < 3; ++c) {
      low[c] = std::min(low[c], cell->key[c]);
      high[c] = std::max(high[c], cell->key[c]);
    }
  }
  for (int c = 0; c < 3; ++c) {
    if (high[c] - low[c] > box.range) {
      box.range = high[c] - low[c];
      box.widestChannel = c;
    }
  }
  return box;
}

// Splits boxes until there are `colors` of them or none can be split: each time the box whose
// pixels spread most (count times its widest range) is cut at the median pixel of that channel.
std::vector<Box> medianCut(std::vector<Cell>& cells, std::size_t colors) {
  std::vector<Box> boxes{makeBox(cells.begin(), cells.end())};
  while (boxes.size() < colors) {
    auto widest = std::max_element(boxes.begin(), boxes.end(), [](const Box& a, const Box& b) {
      return a.count * static_cast<std::uint64_t>(a.range) <
             b.count * static_cast<std::uint64_t>(b.range);
    });
    if (widest->range == 0) {
      break;
    }
    const int channel = widest->widestChannel;
    std::sort(widest->begin, widest->end,
              [channel](const Cell& a, const Cell& b) { return a.key[channel] < b.key[channel]; });
    std::uint64_t seen = 0;
    auto middle = widest->begin;
    while (middle + 1 != widest->end && seen + middle->count <= widest->count / 2) {
      seen += middle->count;
      ++middle;
    }
    if (middle == widest->begin) {
      ++middle;
    }
    const Box first = makeBox(widest->begin, middle);
    const Box second = makeBox(middle, widest->end);
    *widest = first;
    boxes.push_back(second);
  }
  return boxes;
}

std::vector<Rgba8> straightPixels(const Image& frame) {
  std::vector<Rgba8> pixels;
  pixels.reserve(frame.width() * frame.height());
  for (std::size_t y = 0; y < frame.height(); ++y) {
    for (std::size_t x = 0; x < frame.width(); ++x) {
      pixels.push_back(unpremultiplied(frame.pixel(x, y)));
    }
  }
  return pixels;
}

std::uint32_t packed(const Rgba8& p) {
  return (p.r << 16) | (p.g << 8) | p.b;
}

// The frame's distinct opaque colours, or nothing when there are more than `limit`.
std::vector<std::uint32_t> exactColors(const std::vector<Rgba8>& pixels, std::size_t limit) {
  std::unordered_set<std::uint32_t> seen;
  for (const Rgba8& p : pixels) {
    if (p.a >= opaqueAlpha && seen.insert(packed(p)).second && seen.size() > limit) {
      return {};
    }
  }
  std::vector<std::uint32_t> colors(seen.begin(), seen.end());
  std::sort(colors.begin(), colors.end());
  return colors;
}

// Maps each opaque pixel onto its own colour's entry.
void mapExactly(const std::vector<Rgba8>& pixels, const std::vector<std::uint32_t>& colors,
                IndexedFrame& result) {
  std::unordered_map<std::uint32_t, std::uint8_t> index;
  for (const std::uint32_t color : colors) {
    index.emplace(color, static_cast<std::uint8_t>(result.palette.size()));
    result.palette.push_back({static_cast<std::uint8_t>(color >> 16),
                              static_cast<std::uint8_t>(color >> 8),
                              static_cast<std::uint8_t>(color)});
  }
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    if (pixels[i].a >= opaqueAlpha) {
      result.indices[i] = index.at(packed(pixels[i]));
    }
  }
}

std::vector<Rgb> paletteByMedianCut(const std::vector<Rgba8>& pixels, std::size_t colors) {
  std::vector<Cell> histogram(histogramSize);
  for (const Rgba8& p : pixels) {
    if (p.a < opaqueAlpha) {
      continue;
    }
    const int shift = 8 - histogramBits;
    Cell& cell = histogram[((p.r >> shift) << (2 * histogramBits)) |
                           ((p.g >> shift) << histogramBits) | (p.b >> shift)];
    cell.key = {p.r >> shift, p.g >> shift, p.b >> shift};
    ++cell.count;
    cell.sum[0] += p.r;
    cell.sum[1] += p.g;
    cell.sum[2] += p.b;
  }
  std::erase_if(histogram, [](const Cell& cell) { return cell.count == 0; });
  std::vector<Rgb> palette;
  if (histogram.empty()) {
    return palette;
  }
  for (const Box& box : medianCut(histogram, colors)) {
    std::array<std::uint64_t, 3> sum{};
    for (auto cell = box.begin; cell != box.end; ++cell) {
      for (int c = 0; c < 3; ++c) {
        sum[c] += cell->sum[c];
      }
    }
    palette.push_back({static_cast<std::uint8_t>((sum[0] + box.count / 2) / box.count),
                       static_cast<std::uint8_t>((sum[1] + box.count / 2) / box.count),
                       static_cast<std::uint8_t>((sum[2] + box.count / 2) / box.count)});
  }
  return palette;
}

// The palette entry nearest to a colour, remembered per 6-bit cell of colour space.
class NearestColor {
public:
  explicit NearestColor(const std::vector<Rgb>& palette)
      : palette_(palette), cache_(std::size_t{1} << (3 * lookupBits), -1) {}

  std::uint8_t operator()(int r, int g, int b) {
    const int shift = 8 - lookupBits;
    const std::size_t key = (static_cast<std::size_t>(r >> shift) << (2 * lookupBits)) |
                            static_cast<std::size_t>((g >> shift) << lookupBits) |
                            static_cast<std::size_t>(b >> shift);
    if (cache_[key] < 0) {
      int best = 0;
      int bestDistance = 1 << 30;
      for (std::size_t i = 0; i < palette_.size(); ++i) {
        const int dr = r - palette_[i][0];
        const int dg = g - palette_[i][1];
        const int db = b - palette_[i][2];
        const int distance = 2 * dr * dr + 4 * dg * dg + 3 * db * db;
        if (distance < bestDistance) {
          bestDistance = distance;
          best = static_cast<int>(i);
        }
      }
      cache_[key] = static_cast<std::int16_t>(best);
    }
    return static_cast<std::uint8_t>(cache_[key]);
  }

private:
  const std::vector<Rgb>& palette_;
  std::vector<std::int16_t> cache_;
};

// Floyd-Steinberg: each opaque pixel's rounding error goes 7/16 right, 3/16 down-left, 5/16 down
// and 1/16 down-right, to opaque neighbours only.
void mapDithered(const std::vector<Rgba8>& pixels, std::size_t width, IndexedFrame& result) {
  NearestColor nearest(result.palette);
  const std::size_t height = pixels.size() / width;
  std::vector<std::array<int, 3>> current(width + 2);
  std::vector<std::array<int, 3>> next(width + 2);
  for (std::size_t y = 0; y < height; ++y) {
    std::fill(next.begin(), next.end(), std::array<int, 3>{});
    for (std::size_t x = 0; x < width; ++x) {
      const std::size_t i = y * width + x;
      if (pixels[i].a < opaqueAlpha) {
        continue;
      }
      std::array<int, 3> wanted{pixels[i].r, pixels[i].g, pixels[i].b};
      for (int c = 0; c < 3; ++c) {
        wanted[c] = std::clamp(wanted[c] + current[x + 1][c] / 16, 0, 255);
      }
      const std::uint8_t index = nearest(wanted[0], wanted[1], wanted[2]);
      result.indices[i] = index;
      for (int c = 0; c < 3; ++c) {
        const int error = wanted[c] - result.palette[index][c];
        current[x + 2][c] += error * 7;
        next[x][c] += error * 3;
        next[x + 1][c] += error * 5;
        next[x + 2][c] += error;
      }
    }
    std::swap(current, next);
  }
}

} // namespace

IndexedFrame quantize(const Image& frame, std::size_t maxColors) {
  maxColors = std::clamp<std::size_t>(maxColors, 2, 256);
  const std::vector<Rgba8> pixels = straightPixels(frame);
  IndexedFrame result;
  result.indices.assign(pixels.size(), 0);
  const bool transparent =
      std::any_of(pixels.begin(), pixels.end(), [](const Rgba8& p) { return p.a < opaqueAlpha; });
  const std::size_t colors = transparent ? maxColors - 1 : maxColors;
  const std::vector<std::uint32_t> exact = exactColors(pixels, colors);
  if (!exact.empty()) {
    mapExactly(pixels, exact, result);
  } else {
    result.palette = paletteByMedianCut(pixels, colors);
    if (!result.palette.empty()) {
      mapDithered(pixels, frame.width(), result);
    }
  }
  if (transparent) {
    result.transparentIndex = static_cast<int>(result.palette.size());
    result.palette.push_back({0, 0, 0});
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      if (pixels[i].a < opaqueAlpha) {
        result.indices[i] = static_cast<std::uint8_t>(result.transparentIndex);
      }
    }
  }
  if (result.palette.empty()) {
    result.palette.push_back({0, 0, 0});
  }
  return result;
}

} // namespace frameloom::platform
