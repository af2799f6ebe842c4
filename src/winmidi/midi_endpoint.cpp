#include "winmidi/midi_endpoint.h"

#include <algorithm>
#include <iterator>

namespace corvalint {

MidiInputBuffers::MidiInputBuffers() : data(kInputBufferCount * kInputBufferSize) {
  for (std::size_t number = 0; number < kInputBufferCount; ++number) {
    headers[number].data = data.data() + number * kInputBufferSize;
    headers[number].bufferLength = kInputBufferSize;
    headers[number].user = number;
  }
}

std::string TextOf(const char (&name)[32]) {
  return {name, std::find(std::begin(name), std::end(name), '\0')};
}

}  // namespace corvalint
