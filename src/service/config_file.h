#pragma once

#include <map>
#include <string>

namespace corvalint {

using ConfigMap = std::map<std::string, std::string>;

// Adds the entries of a key/value text file to the map; nothing when the file cannot be opened. A
// key that stands twice keeps the value of its last line. Throws std::out_of_range "invalid string
// position" at a line whose value is empty; the entries before it are in the map by then. The file
// is read byte by byte, and no byte ends it, on purpose not even 0x1A, where programs of Windows
// end a text: what stands behind it counts as well. `path` is UTF-8 with backslashes.
//
//   key = value        the key loses blanks at its end, the value at both ends
//   ; text, # text     a comment, only with that very first character
//   anything without "=", or that begins with it, is ignored
void ReadConfigFile(ConfigMap& map, const char* path);

}  // namespace corvalint
