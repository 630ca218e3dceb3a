// What system/ keeps for the whole process.
#include "support/ProcessState.h"
#include "system/ProcessInfo.h"
#include "system/Processes.h"

namespace sorvane::test {
namespace {

const ResetWithProcessState systemState([] {
  ProcessInfo::replaceForTest(nullptr);
  resetProcessIDForTest();
});

}  // namespace
}  // namespace sorvane::test
