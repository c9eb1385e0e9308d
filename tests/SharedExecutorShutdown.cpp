// Linked into the test executables that render on the shared pool: after the last test it stops
// and joins the pool, so that no render is still running while the process destroys the renderer
// library's static objects at exit (the frameloom tool does the same before leaving main).
#include <frameloom/platform/runtime/SharedExecutor.h>

#include <gtest/gtest.h>

namespace {

class SharedExecutorShutdown : public ::testing::Environment {
public:
  void TearDown() override { frameloom::platform::shutDownSharedExecutor(); }
};

const auto* const registered = ::testing::AddGlobalTestEnvironment(new SharedExecutorShutdown);

} // namespace
