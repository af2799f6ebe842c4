#include "host/watch.h"

#include "host/documents.h"
#include "host/words.h"

namespace corvalint::host {
namespace {

std::string LocalTime(const char* format, std::time_t time) {
  char text[32] = "";
  if (const std::tm* local = std::localtime(&time)) std::strftime(text, sizeof text, format, local);
  return text;
}

}  // namespace

std::string TimeOfDay(std::time_t time) { return LocalTime("%H:%M:%S", time); }

std::string DateAndTime(std::time_t time) { return LocalTime("%Y-%m-%dT%H:%M:%S", time); }

std::string DevicesText(unsigned int devices) { return Counted(devices, "device") + " connected"; }

void ChangeView::Begin(const Look& look) {
  print(FirstText(look) + "\n");
  devicesBefore = look.devices;
}

void ChangeView::Update(const Look& look) {
  for (const Change& change : look.changes) print(TextOf(change) + "\n");
  for (const PortNews& news : look.news) print(TextOf(news) + "\n");
  if (look.devices != devicesBefore) print(TextOfDevices(look.devices) + "\n");
  devicesBefore = look.devices;
}

std::string LineView::FirstText(const Look& look) const { return TextOfDevices(look.devices); }

std::string LineView::TextOf(const Change& change) const {
  return TimeOfDay() + "  " + ChangeText(change);
}

std::string LineView::TextOf(const PortNews& news) const {
  return TimeOfDay(static_cast<std::time_t>(news.second)) + "  " + NewsText(news);
}

std::string LineView::TextOfDevices(unsigned int devices) const {
  return TimeOfDay() + "  " + DevicesText(devices);
}

std::string DocumentView::FirstText(const Look& look) const {
  return ListDocument(look.listing, look.devices);
}

std::string DocumentView::TextOf(const Change& change) const {
  return ChangeDocument(change, DateAndTime());
}

std::string DocumentView::TextOf(const PortNews& news) const {
  return MidiDocument(news, DateAndTime(static_cast<std::time_t>(news.second)));
}

std::string DocumentView::TextOfDevices(unsigned int devices) const {
  return DevicesDocument(devices, DateAndTime());
}

void LiveView::Begin(const Look& look) { Show(look); }

void LiveView::Update(const Look& look) {
  history.Add(std::time(nullptr), look.changes.size());
  Show(look);
}

void LiveView::Show(const Look& look) {
  if (system.takeLibraryLines) console.Take(system.takeLibraryLines());
  LiveState state;
  state.time = TimeOfDay();
  state.listing = look.listing;
  state.devices = look.devices;
  state.identifiers = console.Devices();
  state.announced = console.Announced();
  state.ports = look.rates;
  state.changes = history.PerSecond(std::time(nullptr));
  screen->Draw(RenderLive(state, screen->Columns(), screen->Rows()));
}

}  // namespace corvalint::host
