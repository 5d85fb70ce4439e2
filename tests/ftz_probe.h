// Runs a start-up on a thread of its own, beside a host thread with the default
// control word, and reports whether each ends with flush-to-zero set.
#pragma once

#include <xmmintrin.h>

#include <future>
#include <thread>

struct FlushToZeroSeen {
  bool onStartupThread = false;
  bool onOtherThread = false;
};

template <typename StartUp>
FlushToZeroSeen observeFlushToZero(StartUp startUp) {
  FlushToZeroSeen seen;
  std::promise<void> started;
  std::shared_future<void> done = started.get_future().share();
  std::thread other([&] {
    _mm_setcsr(_mm_getcsr() & ~0x8000u);
    done.wait();
    seen.onOtherThread = (_mm_getcsr() & 0x8000u) != 0;
  });
  std::thread([&] {
    _mm_setcsr(_mm_getcsr() & ~0x8000u);
    startUp();
    seen.onStartupThread = (_mm_getcsr() & 0x8000u) != 0;
  }).join();
  started.set_value();
  other.join();
  return seen;
}
