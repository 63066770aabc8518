// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include "client.h"
#include "command.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

void RunList(const Context& context) {
  const SpectralInstance client = MakeInstance(nullptr);
  std::string text = "TYPE           INDEX  SUPPORTED  NAME\n";
  Json sensors = Json::array();
  for (const OpticalSensorType type :
       {OpticalSensorType::kAmbientLight, OpticalSensorType::kFlicker}) {
    size_t index = 0;
    for (const std::string& name : SensorNames(*client, type)) {
      const bool supported = client->IsSensorSupported(type, name.c_str());
      text += fmt::format("{:<13}  {:<5}  {:<9}  {}\n", TypeName(type), index,
                          supported ? "yes" : "no", Printable(name));
      sensors.push_back(
          {{"type", TypeName(type)}, {"index", index++}, {"name", name}, {"supported", supported}});
    }
  }
  if (sensors.empty()) {
    throw NoSensors("optical");
  }
  context.out.Add(context.format == "json" ? JsonLine(Json{{"sensors", sensors}}) : text);
  context.out.Flush();
}

}  // namespace

void AddListCommand(CLI::App& app, const Context& context) {
  CLI::App* const list = app.add_subcommand("list", "show the optical sensors");
  list->footer("Example: hyl-spectral list --format json");
  list->callback([&context] { RunList(context); });
}

}  // namespace hyl::v2::tool
