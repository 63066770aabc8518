// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hyl/spectral_instance.h>

namespace hyl::v2::test {

inline constexpr auto kContinuous = SensorReportingMode::kContinuous;
inline constexpr auto kOnChange = SensorReportingMode::kOnChange;

struct SpectralCall {
  uint32_t kind;
  uint32_t session_id;
  std::vector<float> values;
  int64_t timestamp;

  bool operator==(const SpectralCall&) const = default;
};

struct FlickerCall {
  uint32_t session_id;
  FlickerSampleBlock block;
  std::vector<int32_t> samples;  ///< copied out of the buffer during the call
};

/// A client that keeps what it gets. Safe on any thread.
class RecordingClient : public HylSpectralApiCallbackInterface {
 public:
  /// Runs `hook` at the end of every callback from now on, on its thread, without a lock held. The
  /// client is not touched after the hook, which may thus delete it.
  void SetHook(std::function<void()> hook) {
    const std::lock_guard lock(mutex_);
    hook_ = std::move(hook);
  }

  void OnSpectralData(uint32_t kind, uint32_t session_id, const Vector<float>& values,
                      int64_t timestamp) override {
    RunHookAfter([&] {
      spectral_.push_back({kind, session_id, {values.begin(), values.end()}, timestamp});
    });
  }
  void OnFlickerData(uint32_t session_id, const FlickerSampleBlock* block) override {
    RunHookAfter([&] {
      flicker_.push_back(
          {session_id, *block, {block->samples, block->samples + block->num_samples}});
    });
  }

  /// The calls since the last Take, oldest first.
  std::vector<SpectralCall> TakeSpectral() {
    const std::lock_guard lock(mutex_);
    return std::exchange(spectral_, {});
  }
  std::vector<FlickerCall> TakeFlicker() {
    const std::lock_guard lock(mutex_);
    return std::exchange(flicker_, {});
  }

 private:
  template <typename Record>
  void RunHookAfter(Record record) {
    std::function<void()> hook;
    {
      const std::lock_guard lock(mutex_);
      record();
      hook = hook_;
    }
    if (hook) {
      hook();
    }
  }

  std::mutex mutex_;
  std::function<void()> hook_;          // guarded by mutex_
  std::vector<SpectralCall> spectral_;  // guarded by mutex_
  std::vector<FlickerCall> flicker_;    // guarded by mutex_
};

/// Checks what `call` has handed back, unless a slow machine has delayed the reply for too long.
inline void CheckInTime(const std::function<void()>& call, const std::function<void()>& check) {
  const auto begin = std::chrono::steady_clock::now();
  call();
  if (std::chrono::steady_clock::now() - begin < kOwedReplyTimeLimit) {
    check();
  }
}

}  // namespace hyl::v2::test
