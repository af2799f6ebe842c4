#include "platform/winmm_api.h"

#include "platform/missing_libraries.h"

namespace corvalint {

const WinMidiApi& WinMidiApi::System() { return MissingWinMidi(); }

}  // namespace corvalint
