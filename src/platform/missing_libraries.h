#pragma once

#include "platform/mobile_device_api.h"
#include "platform/virtual_midi_api.h"
#include "platform/winmm_api.h"

namespace corvalint {

// Tables for a machine that lacks a device library: every function fails the way the real one does,
// so the code above needs no case of its own. They hold no state, live for ever and serve any
// thread.

// No devices: opening one is kMidiBadDevice, anything with a handle is kMidiInvalidHandle.
const WinMidiApi& MissingWinMidi();

// No port can be created and nothing is taken.
const VirtualMidiApi& MissingVirtualMidi();

// Results are kDeviceLibraryMissing, strings are null, the connection id is 0; nothing is written
// through a pointer.
const MobileDeviceApi& MissingMobileDevice();

}  // namespace corvalint
