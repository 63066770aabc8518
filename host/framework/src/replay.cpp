// SPDX-License-Identifier: Apache-2.0
#include <hyl/host/replay.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <hyl/host/messages.h>
#include <hyl/host/scripted_framework.h>
#include <hyl/host/sensors.h>

#include "recording_reader.h"

namespace hyl::v2::host {
namespace {

constexpr size_t kMaxSensors = 256;

struct Sensor {
  std::string name;
  bool flicker;
  int bits;                       // of a flicker sensor's samples
  std::vector<uint32_t> handles;  // one for each way of running it
};

/// `counts` has the number of sensors so far, by their first handle.
Sensor SensorFrom(const Json& json, std::map<uint32_t, uint32_t>& counts) {
  const auto type = MemberOf<std::string>(json, "type");
  const bool flicker = type == "flicker";
  Require(flicker || type == "ambient-light", "there is no such type of sensor");
  Sensor sensor = {MemberOf<std::string>(json, "name"), flicker, 0, {}};
  if (flicker) {
    sensor.bits = MemberOf<int>(json, "bits");
    Require(sensor.bits >= 1 && sensor.bits <= 32, "'bits' is not from 1 to 32");
  }
  for (const uint32_t first :
       flicker ? std::vector{kFlicker} : std::vector{kRearContinuous, kRearOnChange}) {
    sensor.handles.push_back(first + counts[first]++);
  }
  return sensor;
}

SensorEvent EventFrom(const Json& line) {
  SensorEvent event = {.values = ListOf<float>(line, "values"),
                       .timestamp = MemberOf<int64_t>(line, "timestamp_ns")};
  Require(MemberOf<uint32_t>(line, "kind") == 0, "another kind than 0 cannot be replayed");
  Require(event.timestamp >= 0, "a timestamp below 0 cannot be replayed");
  Require(event.values.size() <= UINT8_MAX, "more than 255 values cannot be replayed");
  return event;
}

/// The samples, each in the low bits of `sample_bytes` bytes.
std::vector<uint8_t> BytesFrom(const Json& line, int bits, uint32_t sample_bytes) {
  std::vector<uint8_t> bytes;
  for (const auto sample : ListOf<int32_t>(line, "samples")) {
    Require(sample >> (bits - 1) == (sample < 0 ? -1 : 0),
            "a sample that is wider than 'bits' cannot be replayed");
    for (uint32_t byte = 0; byte < sample_bytes; ++byte) {
      bytes.push_back(static_cast<uint8_t>(sample >> (8 * byte)));
    }
  }
  Require(!bytes.empty(), "a block without samples cannot be replayed");
  return bytes;
}

}  // namespace

struct Replay::State {
  explicit State(const std::string& file) : stream(file), reader(stream, file) {}

  void ListSensors();
  void Deliver(const Json& line);
  void DeliverFlicker(const Sensor& sensor, const Json& line);
  /// Does nothing if the sensor is not running.
  void DeliverTo(const Sensor& sensor, const Message& message);

  std::ifstream stream;
  RecordingReader reader;
  std::vector<Sensor> sensors;
  std::optional<RecordingReader::Line> next;  // none at the end
  std::atomic<int64_t> now = 0;
  uint64_t drops = 0;
  ScriptedFramework framework;
};

void Replay::State::ListSensors() {
  std::vector<SensorListEntry> list = {MakeEntry(kListMarker, "")};
  std::map<uint32_t, uint32_t> counts;
  for (const Json& json : ListOf<Json>(reader.Header(), "sensors")) {
    Require(sensors.size() < kMaxSensors, "there are too many sensors");
    sensors.push_back(SensorFrom(json, counts));
    for (const uint32_t handle : sensors.back().handles) {
      list.push_back(MakeEntry(handle, sensors.back().name));
    }
  }
  framework.SetSensorList(std::move(list));
}

void Replay::State::Deliver(const Json& line) {
  const auto kind = MemberOf<std::string>(line, "line");
  if (kind == "drop") {
    drops += MemberOf<uint32_t>(line, "count");
    return;
  }
  const bool flicker = kind == "flicker";
  Require(flicker || kind == "spectral", "there is no such kind of line");
  const auto name = MemberOf<std::string>(line, "sensor");
  const auto sensor = std::find_if(sensors.begin(), sensors.end(), [&](const Sensor& candidate) {
    return candidate.name == name && candidate.flicker == flicker;
  });
  Require(sensor != sensors.end(), "the header has no such sensor");
  if (flicker) {
    DeliverFlicker(*sensor, line);
  } else {
    DeliverTo(*sensor, EventChainMessage({EventFrom(line)}));
  }
}

void Replay::State::DeliverFlicker(const Sensor& sensor, const Json& line) {
  const auto sample_bytes = static_cast<uint32_t>(std::max(2, (sensor.bits + 7) / 8));
  FlickerFormatMessage format(static_cast<FlickerFormatSampleWidth>(sample_bytes));
  format.msb = static_cast<uint8_t>(8 * static_cast<int>(sample_bytes) - sensor.bits);
  format.format_param = MemberOf<uint32_t>(line, "format_param");
  const auto seq_num = MemberOf<uint32_t>(line, "seq_num");
  Require(seq_num <= UINT32_MAX / sample_bytes, "'seq_num' is beyond what can be replayed");
  FlickerDataMessage data(BytesFrom(line, sensor.bits, sample_bytes), seq_num * sample_bytes,
                          MemberOf<uint8_t>(line, "restart"));
  data.aux8_0 = MemberOf<uint8_t>(line, "aux8_0");
  data.aux8_1 = MemberOf<uint8_t>(line, "aux8_1");
  data.aux16_0 = MemberOf<uint16_t>(line, "aux16_0");
  data.aux16_1 = MemberOf<uint16_t>(line, "aux16_1");
  data.aux16_2 = MemberOf<uint16_t>(line, "aux16_2");
  data.aux32_0 = MemberOf<uint32_t>(line, "aux32_0");
  data.aux32_1 = MemberOf<uint32_t>(line, "aux32_1");
  data.auxf_0 = MemberOf<float>(line, "auxf_0");
  data.auxf_1 = MemberOf<float>(line, "auxf_1");
  DeliverTo(sensor, format);
  DeliverTo(sensor, data);
}

void Replay::State::DeliverTo(const Sensor& sensor, const Message& message) {
  for (const auto& [handle, client_id] : framework.Running()) {
    if (std::find(sensor.handles.begin(), sensor.handles.end(), handle) != sensor.handles.end()) {
      framework.Deliver(handle, message);
      return;
    }
  }
}

Replay::Replay(const std::string& file) : state_(std::make_unique<State>(file)) {
  try {
    state_->ListSensors();
  } catch (const std::runtime_error& fault) {
    state_->reader.Fail(fault.what());
  }
  state_->next = state_->reader.Next();
  state_->framework.SetRecording(false);
  state_->framework.AnswerWith(ScriptedFramework::Echo);
  state_->framework.RefuseIf([](const FrameworkCall& call) {
    return call.As<RlsMsgAccessReq>() != nullptr ? HylErr::kInvalidArgument : HylErr::kOk;
  });
}

Replay::~Replay() = default;

const std::string& Replay::Header() const {
  return state_->reader.HeaderText();
}

int64_t Replay::Now() const {
  return state_->now;
}

int64_t Replay::NextDue() const {
  return state_->next ? state_->next->time_ns : kNever;
}

void Replay::Advance(std::chrono::nanoseconds step) {
  const int64_t start = state_->now;
  const int64_t end = start + std::clamp<int64_t>(step.count(), 0, kNever - 1 - start);
  while (NextDue() <= end) {
    Step();
  }
  state_->now = end;
}

void Replay::Step() {
  if (!state_->next) {
    return;
  }
  state_->framework.AwaitAnswers();
  const RecordingReader::Line line = *std::exchange(state_->next, std::nullopt);
  state_->now = line.time_ns;
  try {
    state_->Deliver(line.json);
  } catch (const std::runtime_error& fault) {
    state_->reader.Fail(fault.what());
  }
  state_->next = state_->reader.Next();
}

uint64_t Replay::TakeDrops() {
  return std::exchange(state_->drops, 0);
}

bool Replay::CutOff() const {
  return state_->reader.CutOff();
}

}  // namespace hyl::v2::host
