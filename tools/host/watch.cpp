#include "host/watch.h"

#include <ctime>

#include "host/documents.h"

namespace corvalint::host {
namespace {

std::string LocalTime(const char* format) {
  std::time_t now = std::time(nullptr);
  char time[32] = "";
  if (const std::tm* local = std::localtime(&now)) std::strftime(time, sizeof time, format, local);
  return time;
}

}  // namespace

std::string TimeOfDay() { return LocalTime("%H:%M:%S"); }

std::string DateAndTime() { return LocalTime("%Y-%m-%dT%H:%M:%S"); }

std::string DevicesText(unsigned int devices) {
  return std::to_string(devices) + (devices == 1 ? " device" : " devices") + " connected";
}

void LineView::Begin(const Listing&, unsigned int devices) {
  print(TimeOfDay() + "  " + DevicesText(devices) + "\n");
  devicesBefore = devices;
}

void LineView::Update(const Listing&, const std::vector<Change>& changes, unsigned int devices) {
  for (const Change& change : changes) print(TimeOfDay() + "  " + ChangeText(change) + "\n");
  if (devices != devicesBefore) print(TimeOfDay() + "  " + DevicesText(devices) + "\n");
  devicesBefore = devices;
}

void DocumentView::Begin(const Listing& listing, unsigned int devices) {
  print(ListDocument(listing, devices) + "\n");
  devicesBefore = devices;
}

void DocumentView::Update(const Listing&, const std::vector<Change>& changes,
                          unsigned int devices) {
  for (const Change& change : changes) print(ChangeDocument(change, DateAndTime()) + "\n");
  if (devices != devicesBefore) print(DevicesDocument(devices, DateAndTime()) + "\n");
  devicesBefore = devices;
}

void LiveView::Begin(const Listing& listing, unsigned int devices) { Show(listing, devices); }

void LiveView::Update(const Listing& listing, const std::vector<Change>& changes,
                      unsigned int devices) {
  history.Add(std::time(nullptr), changes.size());
  Show(listing, devices);
}

void LiveView::Show(const Listing& listing, unsigned int devices) {
  if (system.takeLibraryLines) console.Take(system.takeLibraryLines());
  LiveState state;
  state.time = TimeOfDay();
  state.listing = listing;
  state.devices = devices;
  state.identifiers = console.Devices();
  state.announced = console.Announced();
  state.changes = history.PerSecond(std::time(nullptr));
  screen->Draw(RenderLive(state, screen->Columns(), screen->Rows()));
}

}  // namespace corvalint::host
