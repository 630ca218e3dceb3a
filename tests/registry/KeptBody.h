// Descriptions of registries.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "registry/Registry.h"

namespace sorvane::test {

/// The description with that body.
inline std::string described(std::string_view body) { return keptHeader(body) + std::string(body); }

/// The body of the description of a registry and of the records of connections.
inline std::string keptBody(const Registry& registry,
                            const std::vector<const PortDescriptor*>& records = {}) {
  KeptWriter writer;
  KeptRecords kept;
  registry.keep(writer, kept);
  for (const PortDescriptor* const record : records) {
    kept.keepRecord(writer, *record);
  }
  return std::string(writer.body());
}

/// Reads a body into a new registry, and the records of that many connections.
inline std::vector<std::shared_ptr<PortDescriptor>> restore(Registry& registry,
                                                            std::string_view body,
                                                            std::size_t connections = 0) {
  const std::string description = described(body);
  KeptReader reader(description);
  RestoredRecords restored;
  registry.restore(reader, restored);
  std::vector<std::shared_ptr<PortDescriptor>> records;
  while (records.size() < connections) {
    records.push_back(restored.restoreRecord(reader));
  }
  reader.end();
  return records;
}

}  // namespace sorvane::test
