#include "soak/desk_view.h"

#include <stdexcept>

#include "soak/complaints.h"
#include "soak/world.h"

namespace corvalint::soak {

std::string NameOf(const Exports& exports, int id) {
  std::string name;
  const unsigned length = exports.nameLength(id);
  for (unsigned i = 0; i < length; ++i) name += exports.nameByte(id, static_cast<int>(i));
  return name;
}

std::optional<int> WaitForOnly(const Exports& exports, const std::string& name) {
  std::optional<int> found;
  const bool came = Await([&] {
    try {
      if (exports.count() != 1) return false;
      const int id = exports.idAt(0);
      if (NameOf(exports, id) != name) return false;
      found = id;
      return true;
    } catch (const std::out_of_range&) {
      return false;
    }
  });
  Expect(came, "the host does not see " + name + " alone");
  return found;
}

void SwitchOn(const Exports& exports, int id) {
  if (!exports.status(id)) exports.toggle(static_cast<unsigned>(id));
  Expect(exports.status(id) == 1, "an endpoint cannot be switched on");
}

void SwitchOff(const Exports& exports, int id) {
  if (exports.status(id)) exports.toggle(static_cast<unsigned>(id));
  Expect(exports.status(id) == 0, "an endpoint cannot be switched off");
}

}  // namespace corvalint::soak
