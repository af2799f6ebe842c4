#include "host/watch.h"

#include "host/documents.h"

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

std::string DevicesText(unsigned int devices) {
  return std::to_string(devices) + (devices == 1 ? " device" : " devices") + " connected";
}

void LineView::Begin(const Look& look) {
  print(TimeOfDay() + "  " + DevicesText(look.devices) + "\n");
  devicesBefore = look.devices;
}

void LineView::Update(const Look& look) {
  for (const Change& change : look.changes) print(TimeOfDay() + "  " + ChangeText(change) + "\n");
  for (const PortNews& news : look.news) {
    print(TimeOfDay(static_cast<std::time_t>(news.second)) + "  " + NewsText(news) + "\n");
  }
  if (look.devices != devicesBefore) print(TimeOfDay() + "  " + DevicesText(look.devices) + "\n");
  devicesBefore = look.devices;
}

void DocumentView::Begin(const Look& look) {
  print(ListDocument(look.listing, look.devices) + "\n");
  devicesBefore = look.devices;
}

void DocumentView::Update(const Look& look) {
  for (const Change& change : look.changes) print(ChangeDocument(change, DateAndTime()) + "\n");
  for (const PortNews& news : look.news) {
    print(MidiDocument(news, DateAndTime(static_cast<std::time_t>(news.second))) + "\n");
  }
  if (look.devices != devicesBefore) print(DevicesDocument(look.devices, DateAndTime()) + "\n");
  devicesBefore = look.devices;
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
