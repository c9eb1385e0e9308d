#include "Interruption.h"

#include <pthread.h>
#include <signal.h>

#include <csignal>

#include <utility>

namespace frameloom::tool {

namespace {

// SIGUSR1 only wakes the waiting thread when the tool ends.
sigset_t watchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGUSR1);
  return set;
}

} // namespace

Interruption::Interruption() {
  const sigset_t set = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  waiter_ = std::thread([this] { waitForSignals(); });
}

Interruption::~Interruption() {
  pthread_kill(waiter_.native_handle(), SIGUSR1);
  waiter_.join();
}

Interruption::Registration
Interruption::cancelOnSignal(std::shared_ptr<platform::Progress> progress) {
  const std::lock_guard lock(mutex_);
  current_ = std::move(progress);
  return Registration(*this);
}

Interruption::Registration::~Registration() {
  const std::lock_guard lock(owner_.mutex_);
  owner_.current_.reset();
}

void Interruption::waitForSignals() {
  const sigset_t set = watchedSignals();
  for (;;) {
    int signal = 0;
    if (sigwait(&set, &signal) != 0 || signal == SIGUSR1) {
      return;
    }
    const std::lock_guard lock(mutex_);
    if (current_) {
      current_->cancel();
      continue;
    }
    // Nothing to roll back: end the process the way the signal would have.
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(signal);
  }
}

} // namespace frameloom::tool
