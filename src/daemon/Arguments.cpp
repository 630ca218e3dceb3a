#include "daemon/Arguments.h"

#include <algorithm>

namespace sorvane {
namespace {

std::int32_t recordedCount = 0;
const char* const* recordedArguments = nullptr;

}  // namespace

void recordArguments(int count, const char* const* arguments) {
  recordedCount = arguments == nullptr ? 0 : std::max(count, 0);
  recordedArguments = arguments;
}

std::int32_t VN_parameterCount() { return recordedCount; }

const char* VN_parameter(std::int32_t index) {
  // As an unsigned number a negative index lies beyond the end of every array.
  if (static_cast<std::uint32_t>(index) >= static_cast<std::uint32_t>(recordedCount)) {
    return nullptr;
  }
  return recordedArguments[index];
}

const char* parameterString(std::int32_t index) { return VN_parameter(index); }

}  // namespace sorvane
