#include "commands.h"
#include "core_foundation.h"
#include "mobile_device.h"
#include "text.h"

namespace corvalint::desk {

namespace {

std::vector<std::uint32_t> AnswersFrom(std::string_view list) {
  std::vector<std::uint32_t> answers;
  for (const auto part : Split(list, ',')) {
    answers.push_back(static_cast<std::uint32_t>(NumberFrom(part)));
  }
  return answers;
}

std::optional<std::string> OptionalText(std::string_view hex) {
  if (hex == "-") return std::nullopt;
  return TextFromHex(hex);
}

// device KEY [udid=HEX|-] [name=HEX|-] [id=N] [tcp=PORT] [connect=A,B,..] [mux=A,B,..] [product=N]
std::string SetDevice(const Arguments& arguments) {
  const auto device = DeviceLibrary::Get().Device(std::string(arguments.Word(1)), true);
  if (arguments.Has("udid")) device->identifier = OptionalText(arguments.Option("udid", "-"));
  if (arguments.Has("name")) device->displayName = OptionalText(arguments.Option("name", "-"));
  if (arguments.Has("id")) {
    device->connectionId = static_cast<std::uint32_t>(arguments.OptionNumber("id", 0));
  }
  if (arguments.Has("tcp")) {
    device->tcpPort = static_cast<std::uint16_t>(arguments.OptionNumber("tcp", 0));
  }
  if (arguments.Has("connect")) {
    device->connectAnswers.Set(AnswersFrom(arguments.Option("connect", "")));
  }
  if (arguments.Has("mux")) device->muxAnswers.Set(AnswersFrom(arguments.Option("mux", "")));
  if (arguments.Has("product")) {
    device->record->productWord = static_cast<std::uint64_t>(arguments.OptionNumber("product", 1));
  }
  return {};
}

}  // namespace

void AddDeviceCommands(CommandTable& table) {
  table["device"] = SetDevice;
  table["attach"] = [](const Arguments& arguments) {
    DeviceLibrary::Get().Attach(std::string(arguments.Word(1)),
                                arguments.OptionNumber("fresh", 0) != 0);
    return std::string();
  };
  table["detach"] = [](const Arguments& arguments) {
    DeviceLibrary::Get().Detach(std::string(arguments.Word(1)));
    return std::string();
  };
  table["notify"] = [](const Arguments& arguments) {
    DeviceLibrary::Get().Notify(std::string(arguments.Word(1)),
                                static_cast<std::uint32_t>(arguments.Number(2)));
    return std::string();
  };
  table["restore"] = [](const Arguments& arguments) {
    DeviceLibrary::Get().Restore(std::string(arguments.Word(1)));
    return std::string();
  };
  table["strings"] = [](const Arguments&) { return std::to_string(LiveStrings()); };
}

}  // namespace corvalint::desk
