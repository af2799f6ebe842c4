#include "platform/virtual_midi_api.h"

#include "platform/missing_libraries.h"

namespace corvalint {

const VirtualMidiApi& VirtualMidiApi::System() { return MissingVirtualMidi(); }

}  // namespace corvalint
