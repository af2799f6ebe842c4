#include <stdexcept>

#include "commands.h"
#include "midi_table.h"
#include "outbox.h"
#include "virtual_port.h"
#include "wide_text.h"

namespace corvalint::desk {

namespace {

// Items of an injection: a letter for the kind, then the bytes in hex.
InputItem ItemFrom(std::string_view text) {
  if (text.empty()) throw std::runtime_error("empty item");
  InputItem item;
  switch (text[0]) {
    case 's':
      item.kind = InputItem::Kind::kShort;
      break;
    case 'x':
      item.kind = InputItem::Kind::kShortError;
      break;
    case 'l':
      item.kind = InputItem::Kind::kLong;
      break;
    case 'e':
      item.kind = InputItem::Kind::kLongError;
      break;
    case 'p':
      item.kind = InputItem::Kind::kPartial;
      break;
    default:
      throw std::runtime_error("unknown kind of item");
  }
  item.bytes = BytesFromHex(text.substr(1));
  return item;
}

// input-inject ID JOB ITEM,ITEM,... [pace=US] [repeat=N] [piece=N] [stamps=1]
std::string Inject(const Arguments& arguments) {
  std::vector<InputItem> items;
  for (const auto part : Split(arguments.Word(3), ',')) items.push_back(ItemFrom(part));
  MidiTable::Get().Inject(static_cast<int>(arguments.Number(1)), arguments.Number(2),
                          std::move(items), arguments.OptionNumber("pace", 0),
                          static_cast<std::uint64_t>(arguments.OptionNumber("repeat", 1)),
                          static_cast<std::size_t>(arguments.OptionNumber("piece", 0)),
                          arguments.OptionNumber("stamps", 0) != 0);
  return {};
}

// input-state ID: number of open handles, then STARTED QUEUED PREPARED of each
std::string InputState(const Arguments& arguments) {
  const auto device = MidiTable::Get().InputById(static_cast<int>(arguments.Number(1)));
  const auto handles = MidiTable::Get().HandlesOf(*device);
  std::string answer = std::to_string(handles.size());
  for (const auto& handle : handles) {
    const OpenInput::State state = handle->GetState();
    answer += state.started ? " 1 " : " 0 ";
    answer += std::to_string(state.queued) + " " + std::to_string(state.prepared);
  }
  return answer;
}

// port-play ID JOB HEX,HEX,... [pace=US] [repeat=N] [stamps=1]
std::string Play(const Arguments& arguments) {
  std::vector<Bytes> messages;
  for (const auto part : Split(arguments.Word(3), ',')) messages.push_back(BytesFromHex(part));
  PortTable::Get()
      .ById(static_cast<int>(arguments.Number(1)))
      .Play(arguments.Number(2), std::move(messages), arguments.OptionNumber("pace", 0),
            static_cast<std::uint64_t>(arguments.OptionNumber("repeat", 1)),
            arguments.OptionNumber("stamps", 0) != 0);
  return {};
}

std::string AddInputDevice(const Arguments& arguments) {
  const std::string name = TextFromHex(arguments.Option("name", ""));
  const auto device =
      MidiTable::Get().AddInput(name, WideOf(name), arguments.OptionNumber("position", -1));
  return std::to_string(device->id);
}

std::string AddOutputDevice(const Arguments& arguments) {
  const std::string name = TextFromHex(arguments.Option("name", ""));
  const auto device = MidiTable::Get().AddOutput(name, WideOf(name),
                                                 arguments.OptionNumber("position", -1), nullptr);
  return std::to_string(device->id);
}

// output-play ID [ns=N] [stuck=0|1]
std::string SetOutput(const Arguments& arguments) {
  const auto device = MidiTable::Get().OutputById(static_cast<int>(arguments.Number(1)));
  if (arguments.Has("ns")) device->playNs = arguments.OptionNumber("ns", 0);
  if (arguments.Has("stuck")) device->stuck = arguments.OptionNumber("stuck", 0) != 0;
  return {};
}

std::string OutputCounts(const Arguments& arguments) {
  const auto device = MidiTable::Get().OutputById(static_cast<int>(arguments.Number(1)));
  return std::to_string(device->messages) + " " + std::to_string(device->bytes);
}

std::string PortCounts(const Arguments& arguments) {
  const auto& port = PortTable::Get().ById(static_cast<int>(arguments.Number(1)));
  return std::to_string(port.messages) + " " + std::to_string(port.bytes);
}

// ports: ID:NAME for each open port
std::string ListPorts(const Arguments&) {
  std::string answer;
  for (const VirtualPort* port : PortTable::Get().Open()) {
    if (!answer.empty()) answer += ' ';
    answer += std::to_string(port->id) + ":" + HexOfWide(port->name);
  }
  return answer;
}

}  // namespace

void AddMidiCommands(CommandTable& table) {
  table["input-add"] = AddInputDevice;
  table["output-add"] = AddOutputDevice;
  table["input-remove"] = [](const Arguments& arguments) {
    MidiTable::Get().RemoveInput(static_cast<int>(arguments.Number(1)),
                                 static_cast<MMRESULT>(arguments.OptionNumber("result", 0)));
    return std::string();
  };
  table["output-remove"] = [](const Arguments& arguments) {
    MidiTable::Get().RemoveOutput(static_cast<int>(arguments.Number(1)),
                                  static_cast<MMRESULT>(arguments.OptionNumber("result", 0)));
    return std::string();
  };
  table["input-inject"] = Inject;
  table["input-state"] = InputState;
  table["output-play"] = SetOutput;
  table["output-counts"] = OutputCounts;
  table["port-play"] = Play;
  table["port-counts"] = PortCounts;
  table["ports"] = ListPorts;
  table["port-occupy"] = [](const Arguments& arguments) {
    PortTable::Get().Occupy(WideFromHex(arguments.Word(1)),
                            arguments.OptionNumber("taken", 1) != 0);
    return std::string();
  };
  table["streaming"] = [](const Arguments& arguments) {
    Outbox::Get().SetStreaming(arguments.Number(1) != 0);
    return std::string();
  };
}

}  // namespace corvalint::desk
