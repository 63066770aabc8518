#include <string>
#include <vector>

#include <android-base/stringprintf.h>

#include "client.h"
#include "command.h"
#include "failure.h"
#include "options.h"
#include "sensors.h"
#include "text.h"

namespace hyl::v2::tool {
namespace {

std::string TextList(const std::vector<Sensor>& sensors) {
  std::string text = "TYPE           INDEX  SUPPORTED  NAME\n";
  for (const Sensor& sensor : sensors) {
    android::base::StringAppendF(&text, "%-13s  %-5zu  %-9s  %s\n", TypeName(sensor.type),
                                 sensor.index, sensor.supported ? "yes" : "no",
                                 Printable(sensor.name).c_str());
  }
  return text;
}

std::string JsonList(const std::vector<Sensor>& sensors) {
  std::string text = "{\"sensors\":[";
  for (const Sensor& sensor : sensors) {
    android::base::StringAppendF(
        &text, "%s{\"type\":\"%s\",\"index\":%zu,\"name\":%s,\"supported\":%s}",
        &sensor == sensors.data() ? "" : ",", TypeName(sensor.type), sensor.index,
        JsonString(sensor.name).c_str(), sensor.supported ? "true" : "false");
  }
  return text + "]}\n";
}

void RunList(const Context& context) {
  RefuseCsv(context);
  Client client;
  std::vector<Sensor> sensors = SensorsOf(client.api(), OpticalSensorType::kAmbientLight);
  for (Sensor& sensor : SensorsOf(client.api(), OpticalSensorType::kFlicker)) {
    sensors.push_back(std::move(sensor));
  }
  if (sensors.empty()) {
    throw Failure(ExitCode::kFramework,
                  "the sensor framework shows no optical sensor; check that its service runs, then "
                  "try again (-v shows the log)");
  }
  context.out.Add(context.format == Format::kJson ? JsonList(sensors) : TextList(sensors));
  context.out.Flush();
}

}  // namespace

Command AddListCommand(CLI::App& app) {
  CLI::App* const list = app.add_subcommand("list", "show the optical sensors");
  SetFooter(*list, "", "hyl-spectral list --format json");
  return {list, RunList};
}

}  // namespace hyl::v2::tool
