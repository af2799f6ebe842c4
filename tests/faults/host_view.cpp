#include "host_view.h"

#include "fault_plan.h"

namespace corvalint::faults {

int IdOf(const Exports& side, const std::string& name) {
  const InsideScope inside;
  for (int i = 0; i < side.count(); ++i) {
    const int id = side.idAt(i);
    std::size_t equal = 0;
    const unsigned int length = side.nameLength(id);
    while (equal < length && equal < name.size() &&
           side.nameByte(id, static_cast<int>(equal)) == name[equal]) {
      ++equal;
    }
    if (equal == length && length == name.size()) return id;
  }
  return 0;
}

bool IsOn(const Exports& side, const std::string& name) {
  const int id = IdOf(side, name);
  const InsideScope inside;
  return id != 0 && side.status(id) != 0;
}

namespace {
void Toggle(const Exports& side, const std::string& name) {
  const int id = IdOf(side, name);
  const InsideScope inside;
  side.toggle(static_cast<unsigned int>(id));
}

}  // namespace

void SwitchOn(const Exports& side, const std::string& name) {
  if (!IsOn(side, name)) Toggle(side, name);
}

void SwitchOff(const Exports& side, const std::string& name) {
  if (IsOn(side, name)) Toggle(side, name);
}

}  // namespace corvalint::faults
