// Plays a .lottie file in a window through SDL2, recoloured green, with Frameloom's main loop
// driven from the SDL loop. With --screenshot it reads back what the window shows once
// `screenshotFrame` frames have been presented, writes it as a binary PPM and exits.
//
//   frameloom_window FILE.lottie [--screenshot OUT.ppm]
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/system/Url.h>
#include <frameloom/player/LottiePlayer.h>

#include <SDL.h>
#include <asio/co_spawn.hpp>

#include <poll.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using frameloom::LottiePlayer;
using frameloom::platform::Color;
using frameloom::platform::MainLoop;

constexpr int windowSize = 400;
constexpr int frameSize = 320;
// The frame the screenshot is taken after: late enough that the animation is on screen.
constexpr int screenshotFrame = 15;
// How long one turn of the loop waits for Frameloom's work before it looks at SDL's events.
constexpr int eventIntervalMilliseconds = 10;
// The background, which the screenshot check tells apart from the animation.
constexpr Uint8 background = 0x20;

// Frees an SDL object with its destroy function.
template <class T, void (*Destroy)(T*)>
struct SdlDeleter {
  void operator()(T* object) const { Destroy(object); }
};
using WindowPtr = std::unique_ptr<SDL_Window, SdlDeleter<SDL_Window, SDL_DestroyWindow>>;
using RendererPtr = std::unique_ptr<SDL_Renderer, SdlDeleter<SDL_Renderer, SDL_DestroyRenderer>>;
using TexturePtr = std::unique_ptr<SDL_Texture, SdlDeleter<SDL_Texture, SDL_DestroyTexture>>;

struct SdlSession {
  SdlSession() {
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
      throw std::runtime_error(std::string("SDL_Init: ") + SDL_GetError());
    }
  }
  ~SdlSession() { SDL_Quit(); }
  SdlSession(const SdlSession&) = delete;
  SdlSession& operator=(const SdlSession&) = delete;
};

// Shows each frame the player delivers, centred on the background.
class WindowDelegate : public frameloom::LottiePlayerDelegate {
public:
  explicit WindowDelegate(SDL_Renderer* renderer) : renderer_(renderer) {}
  int presented = 0;

  void lottiePlayer(LottiePlayer&,
                    std::shared_ptr<const frameloom::platform::Image> frame) override {
    const int width = static_cast<int>(frame->width());
    const int height = static_cast<int>(frame->height());
    if (!texture_) {
      // Frames keep the byte order the renderer drew them in.
      const auto format = frame->pixelOrder() == frameloom::platform::PixelOrder::bgra
                              ? SDL_PIXELFORMAT_BGRA32
                              : SDL_PIXELFORMAT_RGBA32;
      texture_.reset(
          SDL_CreateTexture(renderer_, format, SDL_TEXTUREACCESS_STREAMING, width, height));
      if (!texture_) {
        throw std::runtime_error(std::string("SDL_CreateTexture: ") + SDL_GetError());
      }
      // Frameloom's frames carry premultiplied alpha. Renderers without custom blend modes (the
      // software one) blend them as straight alpha, which only darkens soft edges a little.
      const auto premultiplied = SDL_ComposeCustomBlendMode(
          SDL_BLENDFACTOR_ONE, SDL_BLENDFACTOR_ONE_MINUS_SRC_ALPHA, SDL_BLENDOPERATION_ADD,
          SDL_BLENDFACTOR_ONE, SDL_BLENDFACTOR_ONE_MINUS_SRC_ALPHA, SDL_BLENDOPERATION_ADD);
      if (SDL_SetTextureBlendMode(texture_.get(), premultiplied) != 0) {
        SDL_SetTextureBlendMode(texture_.get(), SDL_BLENDMODE_BLEND);
      }
    }
    SDL_UpdateTexture(texture_.get(), nullptr, frame->pixels().data(),
                      static_cast<int>(frame->bytesPerRow()));
    SDL_SetRenderDrawColor(renderer_, background, background, background, 255);
    SDL_RenderClear(renderer_);
    const SDL_Rect target{(windowSize - width) / 2, (windowSize - height) / 2, width, height};
    SDL_RenderCopy(renderer_, texture_.get(), nullptr, &target);
    SDL_RenderPresent(renderer_);
    ++presented;
  }

private:
  SDL_Renderer* renderer_;
  TexturePtr texture_;
};

// What the window shows, as a binary PPM. Read back right after a present, before the next
// frame draws over it.
void writeScreenshot(SDL_Renderer* renderer, const char* path) {
  std::vector<Uint8> pixels(static_cast<std::size_t>(windowSize) * windowSize * 3);
  if (SDL_RenderReadPixels(renderer, nullptr, SDL_PIXELFORMAT_RGB24, pixels.data(),
                           windowSize * 3) != 0) {
    throw std::runtime_error(std::string("SDL_RenderReadPixels: ") + SDL_GetError());
  }
  std::ofstream out(path, std::ios::binary);
  out << "P6\n" << windowSize << " " << windowSize << "\n255\n";
  out.write(reinterpret_cast<const char*>(pixels.data()),
            static_cast<std::streamsize>(pixels.size()));
  if (!out) {
    throw std::runtime_error(std::string("cannot write ") + path);
  }
}

asio::awaitable<void> loadAndPlay(std::shared_ptr<LottiePlayer> player,
                                  frameloom::platform::Url url) {
  co_await player->loadAnimation(std::move(url));
  if (!player->isAnimationLoaded()) {
    throw std::runtime_error("no animation in the file");
  }
  player->play();
}

int run(const char* file, const char* screenshot) {
  SdlSession session;
  WindowPtr window(SDL_CreateWindow("Frameloom", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED,
                                    windowSize, windowSize, 0));
  if (!window) {
    throw std::runtime_error(std::string("SDL_CreateWindow: ") + SDL_GetError());
  }
  RendererPtr renderer(SDL_CreateRenderer(window.get(), -1, SDL_RENDERER_SOFTWARE));
  if (!renderer) {
    throw std::runtime_error(std::string("SDL_CreateRenderer: ") + SDL_GetError());
  }

  auto& loop = MainLoop::shared();
  auto delegate = std::make_shared<WindowDelegate>(renderer.get());
  auto player = LottiePlayer::create(30);
  player->setDelegate(delegate);
  player->setRenderSize({frameSize, frameSize});
  player->setColors(std::vector<Color>(16, Color::fromHex("#00FF00")));
  std::exception_ptr failure;
  asio::co_spawn(loop.executor(), loadAndPlay(player, frameloom::platform::Url::fromFilePath(file)),
                 [&failure](std::exception_ptr error) { failure = error; });

  pollfd watched{loop.fileDescriptor(), POLLIN, 0};
  for (bool open = true; open;) {
    for (SDL_Event event; SDL_PollEvent(&event);) {
      open = open && event.type != SDL_QUIT;
    }
    if (::poll(&watched, 1, eventIntervalMilliseconds) > 0) {
      loop.poll();
    }
    if (failure) {
      std::rethrow_exception(failure);
    }
    if (screenshot && delegate->presented >= screenshotFrame) {
      writeScreenshot(renderer.get(), screenshot);
      open = false;
    }
  }
  player->stop();
  loop.poll();
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  const bool withScreenshot = argc == 4 && std::strcmp(argv[2], "--screenshot") == 0;
  if (argc != 2 && !withScreenshot) {
    std::cerr << "usage: frameloom_window FILE.lottie [--screenshot OUT.ppm]\n";
    return 2;
  }
  try {
    return run(argv[1], withScreenshot ? argv[3] : nullptr);
  } catch (const std::exception& error) {
    std::cerr << "frameloom_window: " << error.what() << '\n';
    return 1;
  }
}
