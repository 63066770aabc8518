#include <fmt/format.h>

#include "client.h"
#include "command.h"

namespace hyl::v2::tool {
namespace {

void RunList(const Context& context) {
  RefuseCsv(context);
  Client client;
  std::string text = "TYPE           INDEX  SUPPORTED  NAME\n";
  Json sensors = Json::array();
  for (const OpticalSensorType type :
       {OpticalSensorType::kAmbientLight, OpticalSensorType::kFlicker}) {
    size_t index = 0;
    for (const Sensor& sensor : SensorsOf(client.api(), type)) {
      text += fmt::format("{:<13}  {:<5}  {:<9}  {}\n", TypeName(type), index,
                          sensor.supported ? "yes" : "no", Printable(sensor.name));
      sensors.push_back({{"type", TypeName(type)},
                         {"index", index++},
                         {"name", sensor.name},
                         {"supported", sensor.supported}});
    }
  }
  if (sensors.empty()) {
    throw NoSensors("optical");
  }
  context.out.Add(context.format == Format::kJson ? JsonLine(Json{{"sensors", sensors}}) : text);
  context.out.Flush();
}

}  // namespace

void AddListCommand(CLI::App& app, const Context& context) {
  CLI::App* const list = app.add_subcommand("list", "show the optical sensors");
  list->footer("Example: hyl-spectral list --format json");
  list->callback([&context] { RunList(context); });
}

}  // namespace hyl::v2::tool
