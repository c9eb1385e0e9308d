#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <frameloom/platform/Export.h>
#include <memory>

namespace frameloom {

class LottiePlayer;

// Receives the frames a LottiePlayer renders. The player holds its delegate weakly, so the host
// keeps it alive. Always called on the main thread (the thread running platform::MainLoop); the
// delegate may call any player operation from inside the call, including dropping the player.
class FRAMELOOM_EXPORT LottiePlayerDelegate {
public:
  virtual ~LottiePlayerDelegate() = default;

  // One rendered frame of `player`'s animation, passed through as the renderer made it.
  virtual void lottiePlayer(LottiePlayer& player,
                            std::shared_ptr<const platform::Image> didUpdateFrame) = 0;
};

} // namespace frameloom
