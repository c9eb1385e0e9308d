#include <frameloom/platform/core/Progress.h>

#include <gtest/gtest.h>

#include <thread>

using frameloom::platform::Progress;

// A child contributes its pending units to the parent's fraction (which observers of the parent
// see) and hands them over when finished; cancelling reaches children, late ones included.
TEST(Progress, ChildrenContributePendingUnitsAndInheritCancellation) {
  auto parent = Progress::make(10);
  auto child = Progress::make(4);
  parent->addChild(child, 6);
  double observed = -1;
  parent->setObserver([&](const Progress& p) { observed = p.fractionCompleted(); });
  child->setCompletedUnitCount(2);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.3);
  EXPECT_DOUBLE_EQ(observed, 0.3);
  EXPECT_EQ(parent->completedUnitCount(), 0);
  child->setCompletedUnitCount(4);
  EXPECT_EQ(parent->completedUnitCount(), 6);
  EXPECT_DOUBLE_EQ(parent->fractionCompleted(), 0.6);

  auto early = Progress::make(1);
  parent->addChild(early, 1);
  parent->cancel();
  EXPECT_TRUE(early->isCancelled());
  auto late = Progress::make(1);
  parent->addChild(late, 1);
  EXPECT_TRUE(late->isCancelled());
}

TEST(Progress, WorkerStopsWhenAnotherThreadCancelsTheParent) {
  auto parent = Progress::make(1);
  auto child = Progress::make(1'000'000'000);
  parent->addChild(child, 1);
  std::thread worker([&] {
    while (!child->isCancelled()) {
      child->addCompletedUnitCount(1);
    }
  });
  while (parent->fractionCompleted() == 0.0) {
    std::this_thread::yield();
  }
  parent->cancel();
  worker.join();
  EXPECT_FALSE(child->isFinished());
}
