#include "host_view.h"

#include "fault_plan.h"

namespace corvalint::faults {

constinit const HostSide kSources{
    corvalintServerGetCountOfSources,       get_unique_id_source, get_source_name_length,
    corvalintServerGetActiveMIDISourceName, set_source_status,    get_source_status};
constinit const HostSide kDestinations{
    corvalintServerGetCountOfDestinations, get_unique_id_destination, get_dest_name_length,
    corvalintServerGetActiveMIDIDestName,  set_destination_status,    get_destination_status};

int IdOf(const HostSide& side, const std::string& name) {
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

bool IsOn(const HostSide& side, const std::string& name) {
  const int id = IdOf(side, name);
  const InsideScope inside;
  return id != 0 && side.isOn(id) != 0;
}

namespace {
void Toggle(const HostSide& side, const std::string& name) {
  const int id = IdOf(side, name);
  const InsideScope inside;
  side.toggle(static_cast<unsigned int>(id));
}

}  // namespace

void SwitchOn(const HostSide& side, const std::string& name) {
  if (!IsOn(side, name)) Toggle(side, name);
}

void SwitchOff(const HostSide& side, const std::string& name) {
  if (IsOn(side, name)) Toggle(side, name);
}

}  // namespace corvalint::faults
