// What convert/ keeps for the whole process.
#include "convert/Calendar.h"
#include "convert/VNConvertTypes.h"
#include "support/ProcessState.h"

namespace sorvane::test {
namespace {

const ResetWithProcessState convertState([] {
  VNConvertTypes::resetForTest();
  gmtoffset = 0;
  gmtstring[0] = '\0';
});

}  // namespace
}  // namespace sorvane::test
