#include "platform/mobile_device_api.h"

#include "platform/missing_libraries.h"

namespace corvalint {

const MobileDeviceApi& MobileDeviceApi::System() { return MissingMobileDevice(); }

}  // namespace corvalint
