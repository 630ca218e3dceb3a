// The local date and time now.
#include "convert/VNConvertTypes.h"
#include "platform/LocalTime.h"

namespace sorvane {

int VNConvertTypes::currentYear() { return localTimeNow().year; }
int VNConvertTypes::currentMonth() { return localTimeNow().month; }
int VNConvertTypes::currentDay() { return localTimeNow().day; }
int VNConvertTypes::currentHour() { return localTimeNow().hour; }
int VNConvertTypes::currentMin() { return localTimeNow().minute; }

}  // namespace sorvane
